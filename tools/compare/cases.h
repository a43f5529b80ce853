#pragma once
// The fixed set of renders the comparison runs: each case is a setup, a list of
// timed host actions and a sequence of host block sizes, all derived from seeds
// so that both engines receive exactly the same calls.
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "hostcore/engine.h"
#include "render/timeline.h"

namespace Norvell::Compare {

struct Case {
    std::string name;
    uint32_t sampleRate = 48000;
    double seconds = 3.0;
    // Applied once after Start, before the first block.
    std::function<void(HostCore::Engine&, const HostCore::ParamDirectory&)> setup;
    // Sorted by frame; Param and Immediate use the id and value, Midi the message.
    std::vector<HostCore::HostAction> actions;
    // Host block sizes, used in turn; empty means 32 frames.
    std::vector<uint32_t> frames;
};

// presetFolder holds the shipped presets (*.json); params names the parameters
// of the engine the actions are built for.
std::vector<Case> BuildCases(const std::string& presetFolder,
                             const HostCore::ParamDirectory& params);

// The seed every engine instance starts from (through VANTOR_SEED).
constexpr const char* kSeed = "20260423";

// Loads the engine library, plays the case and returns the interleaved stereo output.
std::vector<float> RenderCase(const std::string& library, const Case& c);

} // namespace Norvell::Compare
