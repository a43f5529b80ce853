#include "render/timeline.h"

namespace Norvell::Render {

Timeline BuildTimeline(const SmfFile& file, uint32_t sampleRate, const ControlIds& controls) {
    const TempoMap clock(file);
    Timeline timeline;
    timeline.startBpm = float(clock.BpmAt(0));
    timeline.endFrame = clock.FrameAt(file.LastTick(), sampleRate);

    float bpm = timeline.startBpm;
    for (const SmfEvent& ev : file.Merged()) {
        if (ev.type == SmfEventType::Tempo) {
            const float next = float(clock.BpmAt(ev.tick));
            if (next == bpm) continue;
            bpm = next;
            HostAction action;
            action.frame = clock.FrameAt(ev.tick, sampleRate);
            action.kind = HostAction::Kind::Tempo;
            action.value = bpm;
            timeline.actions.push_back(action);
            continue;
        }
        if (ev.type != SmfEventType::Channel) continue;
        if (auto action = HostCore::MapMidi(ev.status, ev.data1, ev.data2, controls)) {
            action->frame = clock.FrameAt(ev.tick, sampleRate);
            timeline.actions.push_back(*action);
        }
    }
    return timeline;
}

} // namespace Norvell::Render
