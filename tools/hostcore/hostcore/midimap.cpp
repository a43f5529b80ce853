#include "hostcore/midimap.h"

namespace Norvell::HostCore {

ControlIds ControlIds::From(const ParamDirectory& params) {
    ControlIds ids;
    ids.modwheel = params.Find("modwheel");
    ids.expression = params.Find("pedal-expression");
    ids.sustain = params.Find("pedal-sustain");
    ids.pitchbend = params.Find("pitchbend");
    ids.aftertouch = params.Find("aftertouch");
    ids.allNotesOff = params.Find("allnotesoff");
    return ids;
}

std::optional<HostAction> MapMidi(uint8_t status, uint8_t data1, uint8_t data2,
                                  const ControlIds& controls) {
    HostAction action;
    auto param = [&](const std::optional<uint32_t>& id, float value,
                     HostAction::Kind kind) -> std::optional<HostAction> {
        if (!id) return std::nullopt;
        action.kind = kind;
        action.id = *id;
        action.value = value;
        return action;
    };
    switch (status >> 4) {
    case 0x8: // note off
    case 0x9: // note on
    case 0xA: // polyphonic pressure
        action.kind = HostAction::Kind::Midi;
        action.message = PackMidi(status, data1, data2);
        return action;
    case 0xB: // control change
        switch (data1) {
        case 1: return param(controls.modwheel, data2 / 127.0f, HostAction::Kind::Param);
        case 11: return param(controls.expression, data2 / 127.0f, HostAction::Kind::Param);
        case 64: return param(controls.sustain, data2 / 127.0f, HostAction::Kind::Param);
        case 120: // all sound off
        case 123: // all notes off
            return param(controls.allNotesOff, 1.0f, HostAction::Kind::Immediate);
        default: return std::nullopt;
        }
    case 0xD: // channel pressure
        return param(controls.aftertouch, data1 / 127.0f, HostAction::Kind::Param);
    case 0xE: // pitch bend, 14 bits, centre 8192 = 0.5
        return param(controls.pitchbend, float(data1 | data2 << 7) / 16384.0f,
                     HostAction::Kind::Param);
    default: return std::nullopt; // program change: no programs in this engine
    }
}

} // namespace Norvell::HostCore
