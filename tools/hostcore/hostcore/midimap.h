#pragma once
// Host actions and the mapping from MIDI messages to them: notes go to the
// engine as MIDI, controllers, pitch bend and pressure become parameter values.
#include <cstdint>
#include <optional>

#include "hostcore/paramdirectory.h"

namespace Norvell::HostCore {

struct HostAction {
    enum class Kind : uint8_t {
        Param,     // SetParam before UpdateVoiceSetup (controllers read at the next block)
        Midi,      // ProcessMidiMessage after UpdateVoiceSetup
        Immediate, // SetParam whose action is immediate (all notes off): kept in order with Midi
        Tempo,     // new tempo for the RenderContext
    };
    int64_t frame = 0;
    Kind kind = Kind::Midi;
    uint32_t id = 0;      // Param, Immediate
    float value = 0.0f;   // Param, Immediate; beats per minute for Tempo
    uint32_t message = 0; // Midi: status | data1 << 8 | data2 << 16
};

// Ids of the master parameters that MIDI controllers drive; absent ones are skipped.
struct ControlIds {
    std::optional<uint32_t> modwheel, expression, sustain, pitchbend, aftertouch, allNotesOff;
    static ControlIds From(const ParamDirectory& params);
};

constexpr uint32_t PackMidi(uint8_t status, uint8_t data1, uint8_t data2) {
    return uint32_t(status) | uint32_t(data1) << 8 | uint32_t(data2) << 16;
}

// The action for one channel message, or nothing for messages the engine does not
// use (program change, unmapped controllers, system messages). Leaves frame at 0.
std::optional<HostAction> MapMidi(uint8_t status, uint8_t data1, uint8_t data2,
                                  const ControlIds& controls);

} // namespace Norvell::HostCore
