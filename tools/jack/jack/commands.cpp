#include "jack/commands.h"

#include <sstream>
#include <utility>

#include "render/programtable.h"

namespace Norvell::Live {

using namespace HostCore;
using namespace Render;

CommandReader::CommandReader(LiveHost& host, Engine& engine, const ParamDirectory& params,
                             const ControlIds& controls, std::vector<float> baseline)
    : host_(host), engine_(engine), params_(params), controls_(controls),
      baseline_(std::move(baseline)) {}

bool CommandReader::Execute(const std::string& line) {
    std::istringstream words(line);
    std::string verb, argument, extra;
    words >> verb >> argument;
    if (verb.empty() || verb[0] == '#') return true;

    if (verb == "quit") return false;
    if (verb == "panic") {
        if (controls_.allNotesOff)
            host_.Send({HostAction::Kind::Immediate, *controls_.allNotesOff, 1.0f});
        if (controls_.sustain) host_.Send({HostAction::Kind::Param, *controls_.sustain, 0.0f});
        return true;
    }
    if (verb == "set") {
        std::string value;
        words >> value;
        if (argument.empty() || value.empty()) throw Failure("usage: set NAME VALUE");
        Preset one{"set", "set", {ParseAssignment(argument + "=" + value)}};
        for (const auto& v : ResolvePreset(one, params_))
            host_.Send({HostAction::Kind::Param, v.id, v.value});
        return true;
    }
    if (verb == "preset") {
        if (argument.empty()) throw Failure("usage: preset NAME|FILE");
        // The whole sound, as on a fresh engine; the performance controls keep what
        // the player is doing.
        for (const auto& v : ProgramChange(params_, baseline_, argument, SetupOptions{}, controls_))
            host_.Send({HostAction::Kind::Param, v.id, v.value});
        return true;
    }
    if (verb == "save") {
        if (argument.empty()) throw Failure("usage: save FILE");
        if (!host_.Pause()) throw Failure("the engine did not stop for saving; nothing saved");
        std::vector<uint8_t> blob;
        try {
            blob = engine_.GetState();
        } catch (...) {
            host_.Resume();
            throw;
        }
        host_.Resume();
        WriteBlob(argument, blob);
        return true;
    }
    throw Failure("unknown command '" + verb +
                  "' (set NAME VALUE, preset NAME, panic, save FILE, "
                  "quit)");
}

} // namespace Norvell::Live
