#pragma once
// Turns a MIDI file into a list of host actions stamped with sample frames.
#include <cstdint>
#include <optional>
#include <vector>

#include "hostcore/midimap.h"
#include "render/midifile.h"

namespace Norvell::Render {

using HostCore::ControlIds;
using HostCore::HostAction;
using HostCore::PackMidi;

struct Timeline {
    std::vector<HostAction> actions; // sorted by frame, ties in file order
    int64_t endFrame = 0;            // frame of the last event of the file
    float startBpm = 120.0f;
};

Timeline BuildTimeline(const SmfFile& file, uint32_t sampleRate, const ControlIds& controls);

} // namespace Norvell::Render
