#include "render/timeline.h"

namespace Norvell::Render {

Timeline BuildTimeline(const SmfFile& file, uint32_t sampleRate, const ControlIds& controls,
                       const TimelineOptions& options) {
    const TempoMap clock(file);
    Timeline timeline;
    timeline.startBpm = float(clock.BpmAt(0));
    timeline.endFrame = clock.FrameAt(file.LastTick(), sampleRate);

    float bpm = timeline.startBpm;
    std::vector<float> current = options.startValues; // as program changes leave them
    for (const SmfEvent& ev : file.Merged()) {
        const int64_t frame = clock.FrameAt(ev.tick, sampleRate);
        if (ev.type == SmfEventType::Tempo) {
            const float next = float(clock.BpmAt(ev.tick));
            if (next == bpm) continue;
            bpm = next;
            HostAction action;
            action.frame = frame;
            action.kind = HostAction::Kind::Tempo;
            action.value = bpm;
            timeline.actions.push_back(action);
            continue;
        }
        if (ev.type != SmfEventType::Channel) continue;
        if (!(options.channels >> (ev.status & 0x0F) & 1)) continue;

        const uint8_t kind = ev.status & 0xF0;
        if (kind == 0xB0 && (ev.data1 == 7 || ev.data1 == 10)) {
            const auto which = ev.data1 == 7 ? MixChange::Kind::Volume : MixChange::Kind::Pan;
            timeline.mix.push_back({frame, which, ev.data2});
            continue;
        }
        if (kind == 0xC0) {
            if (auto it = options.programs.find(ev.data1); it != options.programs.end())
                for (const auto& v : it->second) {
                    if (v.id < current.size()) {
                        if (current[v.id] == v.value) continue;
                        current[v.id] = v.value;
                    }
                    timeline.actions.push_back({frame, HostAction::Kind::Param, v.id, v.value, 0});
                }
            continue;
        }
        if (auto action = HostCore::MapMidi(ev.status, ev.data1, ev.data2, controls)) {
            action->frame = frame;
            timeline.actions.push_back(*action);
        }
    }
    return timeline;
}

} // namespace Norvell::Render
