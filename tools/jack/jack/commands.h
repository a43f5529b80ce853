#pragma once
// Setting up the engine from the command line, and the commands read from
// standard input while playing: set NAME VALUE, preset NAME, panic, save FILE, quit.
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "hostcore/engine.h"
#include "hostcore/midimap.h"
#include "hostcore/paramdirectory.h"
#include "hostcore/preset.h"
#include "jack/livehost.h"

namespace Norvell::Live {

// Failures with a message for the user; the message is the whole report.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// vantorengine.so next to the program or in ../lib. Throws Failure.
std::string FindEngine();
// A preset by name (from the preset folders) or by file. Throws Failure or PresetError.
HostCore::Preset LoadPreset(const std::string& preset);
std::vector<uint8_t> ReadBlob(const std::string& path);
void WriteBlob(const std::string& path, const std::vector<uint8_t>& blob);

struct SetupOptions {
    std::string preset = "init";
    std::string loadState;
    std::vector<std::string> sets;
};

// Performance defaults, then the preset or the state blob, then the --set values.
void ApplySetup(HostCore::Engine& engine, const HostCore::ParamDirectory& params,
                const SetupOptions& options);

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
