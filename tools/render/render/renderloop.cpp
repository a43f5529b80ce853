#include "render/renderloop.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "render/mastermix.h"

namespace Norvell::Render {

namespace {

int64_t Frames(double seconds, uint32_t rate) {
    return std::max<int64_t>(0, std::llround(seconds * rate));
}

// Passes frames to the sink while counting them and tracking the peak.
class CountingSink {
public:
    explicit CountingSink(AudioSink& sink) : sink_(sink) {}

    void Write(const float* left, const float* right, size_t frames) {
        if (frames == 0) return;
        for (size_t i = 0; i < frames; ++i)
            peak_ = std::max({peak_, std::fabs(left[i]), std::fabs(right[i])});
        sink_.Write(left, right, frames);
        written_ += int64_t(frames);
    }

    int64_t Written() const { return written_; }
    float Peak() const { return peak_; }

private:
    AudioSink& sink_;
    int64_t written_ = 0;
    float peak_ = 0.0f;
};

// Tail frames held back while they are silent: written only if sound follows,
// or in part (the pad) when the tail ends.
struct Pending {
    std::vector<float> left, right;

    void Append(const float* l, const float* r, size_t frames) {
        left.insert(left.end(), l, l + frames);
        right.insert(right.end(), r, r + frames);
    }
    void Flush(CountingSink& out, size_t frames) {
        frames = std::min(frames, left.size());
        out.Write(left.data(), right.data(), frames);
        left.clear();
        right.clear();
    }
};

} // namespace

RenderStats RenderTimeline(Host& host, const Timeline& timeline, const RenderSettings& settings,
                           AudioSink& sink, const ProgressFn& progress) {
    const uint32_t rate = settings.sampleRate;
    const int64_t block = settings.blockSize;
    const int64_t endFrame = std::max<int64_t>(0, timeline.endFrame);
    const int64_t capFrame = endFrame + Frames(settings.tailSeconds, rate);
    const int64_t holdFrames = Frames(settings.silenceHold, rate);
    const int64_t padFrames = std::min(holdFrames, Frames(settings.silencePad, rate));
    const double level = std::pow(10.0, settings.silenceDb / 20.0);
    const double silentEnergy = level * level * 2.0 * double(block); // RMS over both channels

    std::vector<float> left(block), right(block);
    HostCore::BlockProcessor processor(host, uint32_t(block), float(rate),
                                       std::max<size_t>(1024, timeline.actions.size()));
    processor.SetTempo(timeline.startBpm);
    CountingSink out(sink);
    Pending pending;
    MasterMix mix;
    size_t next = 0, nextMix = 0;
    int64_t silentRun = 0;
    int64_t silenceStart = 0;
    bool endedBySilence = false;

    int64_t start = 0;
    for (; start < capFrame; start += block) {
        if (start >= endFrame && silentRun >= holdFrames) {
            endedBySilence = true;
            break;
        }
        // Actions fall into the block holding their frame.
        for (; next < timeline.actions.size() && timeline.actions[next].frame < start + block;
             ++next)
            if (!processor.Queue(timeline.actions[next], 0))
                throw std::runtime_error("too many MIDI events in one block");
        processor.Process(left.data(), right.data(), uint32_t(block));
        for (; nextMix < timeline.mix.size() && timeline.mix[nextMix].frame < start + block;
             ++nextMix) {
            const MixChange& change = timeline.mix[nextMix];
            if (change.kind == MixChange::Kind::Volume)
                mix.SetVolume(change.value);
            else
                mix.SetPan(change.value);
        }
        mix.Apply(left.data(), right.data(), size_t(block));

        double energy = 0.0;
        for (int64_t i = 0; i < block; ++i)
            energy += double(left[i]) * left[i] + double(right[i]) * right[i];
        const bool silent = energy < silentEnergy;
        if (!silent) {
            silentRun = 0;
        } else {
            if (silentRun == 0) silenceStart = start;
            silentRun += block;
        }

        // Frames before the last event are always written; tail frames wait while silent.
        const int64_t stop = std::min(start + block, capFrame);
        const int64_t split = std::clamp(endFrame, start, stop);
        out.Write(left.data(), right.data(), size_t(split - start));
        const float* l = left.data() + (split - start);
        const float* r = right.data() + (split - start);
        if (silent) {
            pending.Append(l, r, size_t(stop - split));
        } else {
            pending.Flush(out, pending.left.size());
            out.Write(l, r, size_t(stop - split));
        }

        if (progress && !progress({start + block, endFrame, capFrame}))
            throw RenderAborted("rendering interrupted");
    }

    const int64_t length = endedBySilence
                               ? std::min(capFrame, std::max(endFrame, silenceStart + padFrames))
                               : capFrame;
    pending.Flush(out, size_t(std::max<int64_t>(0, length - out.Written())));

    RenderStats stats;
    stats.frames = out.Written();
    stats.peak = out.Peak();
    stats.tailCapped = !endedBySilence && capFrame > endFrame;
    return stats;
}

} // namespace Norvell::Render
