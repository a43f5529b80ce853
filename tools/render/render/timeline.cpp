#include "render/timeline.h"

namespace Norvell::Render {

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

Timeline BuildTimeline(const SmfFile& file, uint32_t sampleRate, const ControlIds& controls) {
    const TempoMap clock(file);
    Timeline timeline;
    timeline.startBpm = float(clock.BpmAt(0));
    timeline.endFrame = clock.FrameAt(file.LastTick(), sampleRate);

    float bpm = timeline.startBpm;
    for (const SmfEvent& ev : file.Merged()) {
        HostAction action;
        action.frame = clock.FrameAt(ev.tick, sampleRate);
        auto param = [&](const std::optional<uint32_t>& id, float value, HostAction::Kind kind) {
            if (!id) return;
            action.kind = kind;
            action.id = *id;
            action.value = value;
            timeline.actions.push_back(action);
        };

        if (ev.type == SmfEventType::Tempo) {
            const float next = float(clock.BpmAt(ev.tick));
            if (next == bpm) continue;
            bpm = next;
            action.kind = HostAction::Kind::Tempo;
            action.value = bpm;
            timeline.actions.push_back(action);
            continue;
        }
        if (ev.type != SmfEventType::Channel) continue;

        const float data2 = ev.data2 / 127.0f;
        switch (ev.status >> 4) {
        case 0x8: // note off
        case 0x9: // note on
        case 0xA: // polyphonic pressure
            action.kind = HostAction::Kind::Midi;
            action.message = PackMidi(ev.status, ev.data1, ev.data2);
            timeline.actions.push_back(action);
            break;
        case 0xB: // control change
            switch (ev.data1) {
            case 1:
                param(controls.modwheel, data2, HostAction::Kind::Param);
                break;
            case 11:
                param(controls.expression, data2, HostAction::Kind::Param);
                break;
            case 64:
                param(controls.sustain, data2, HostAction::Kind::Param);
                break;
            case 120: // all sound off
            case 123: // all notes off
                param(controls.allNotesOff, 1.0f, HostAction::Kind::Immediate);
                break;
            default:
                break;
            }
            break;
        case 0xD: // channel pressure
            param(controls.aftertouch, ev.data1 / 127.0f, HostAction::Kind::Param);
            break;
        case 0xE: // pitch bend, 14 bits, centre 8192 = 0.5
            param(controls.pitchbend, float(ev.data1 | ev.data2 << 7) / 16384.0f,
                  HostAction::Kind::Param);
            break;
        default:
            break; // program change: no programs in this engine
        }
    }
    return timeline;
}

} // namespace Norvell::Render
