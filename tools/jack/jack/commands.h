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
    // baseline: every parameter's value before any preset (start values and
    // performance defaults), what a preset change puts back where the preset is silent.
    CommandReader(LiveHost& host, HostCore::Engine& engine, const HostCore::ParamDirectory& params,
                  const HostCore::ControlIds& controls, std::vector<float> baseline);

    // Runs one line; returns false for quit. Throws Failure, PresetError on bad input.
    bool Execute(const std::string& line);

private:
    LiveHost& host_;
    HostCore::Engine& engine_;
    const HostCore::ParamDirectory& params_;
    HostCore::ControlIds controls_;
    std::vector<float> baseline_;
};

} // namespace Norvell::Live
