#pragma once
// Turns a MIDI file into a list of host actions stamped with sample frames.
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "hostcore/midimap.h"
#include "hostcore/preset.h"
#include "render/midifile.h"

namespace Norvell::Render {

using HostCore::ControlIds;
using HostCore::HostAction;
using HostCore::PackMidi;

// A master volume (CC 7) or pan (CC 10) change, applied to the output by the render loop.
struct MixChange {
    enum class Kind : uint8_t { Volume, Pan };
    int64_t frame = 0;
    Kind kind = Kind::Volume;
    uint8_t value = 0;
};

struct Timeline {
    std::vector<HostAction> actions; // sorted by frame, ties in file order
    int64_t endFrame = 0;            // frame of the last event of the file
    float startBpm = 120.0f;
    std::vector<MixChange> mix; // sorted by frame
};

struct TimelineOptions {
    uint16_t channels = 0xFFFF; // bit c: MIDI channel c + 1 is played
    // Program number (0..127 as sent) to the parameter values a program change sets;
    // program changes not listed are ignored.
    std::map<uint8_t, std::vector<HostCore::ParamValue>> programs;
    // Each parameter's value when the render starts, by id: a program change sends
    // only the values that differ from what the engine holds by then.
    std::vector<float> startValues;
};

Timeline BuildTimeline(const SmfFile& file, uint32_t sampleRate, const ControlIds& controls,
                       const TimelineOptions& options = {});

} // namespace Norvell::Render
