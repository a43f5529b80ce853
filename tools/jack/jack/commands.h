#pragma once
// Setting up the engine from the command line, and the commands read from
// standard input while playing: set NAME VALUE, preset NAME, panic, save FILE, quit.
#include <cstdint>
#include <string>
#include <vector>

#include "hostcore/engine.h"
#include "hostcore/midimap.h"
#include "hostcore/paramdirectory.h"
#include "hostcore/preset.h"
#include "jack/livehost.h"
#include "render/setup.h"

namespace Norvell::Live {

using Render::Failure;
using Render::SetupOptions;

class CommandReader {
public:
    CommandReader(LiveHost& host, HostCore::Engine& engine, const HostCore::ParamDirectory& params,
                  const HostCore::ControlIds& controls);

    // Runs one line; returns false for quit. Throws Failure, PresetError on bad input.
    bool Execute(const std::string& line);

private:
    LiveHost& host_;
    HostCore::Engine& engine_;
    const HostCore::ParamDirectory& params_;
    HostCore::ControlIds controls_;
};

} // namespace Norvell::Live
