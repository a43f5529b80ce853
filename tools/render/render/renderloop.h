#pragma once
// The block loop: delivers the timeline to a host block by block, renders, and
// decides where the release tail ends.
#include <cstdint>
#include <functional>
#include <stdexcept>

#include "hostcore/blockprocessor.h"
#include "render/timeline.h"

namespace Norvell::Render {

using HostCore::Host;

class AudioSink {
public:
    virtual ~AudioSink() = default;
    virtual void Write(const float* left, const float* right, size_t frames) = 0;
};

struct RenderSettings {
    uint32_t sampleRate = 44100;
    uint32_t blockSize = 32;
    double tailSeconds = 30.0; // longest tail after the last event
    double silenceDb = -90.0;  // a block is silent when its RMS is below this
    double silenceHold = 1.0;  // seconds of silence that end the tail
    double silencePad = 0.2;   // seconds of that silence kept in the file
};

struct RenderProgress {
    int64_t frames;   // rendered so far
    int64_t endFrame; // end of the MIDI part
    int64_t capFrame; // end of the longest possible tail
};

struct RenderStats {
    int64_t frames = 0;      // written to the sink
    float peak = 0.0f;       // largest absolute sample written
    bool tailCapped = false; // the tail was cut by the cap, not by silence
};

class RenderAborted : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Called after every block; returning false aborts with RenderAborted.
using ProgressFn = std::function<bool(const RenderProgress&)>;

// Every block: Param actions due, UpdateVoiceSetup, Midi and Immediate actions in
// order, Render, CollectChanges, then the master volume and pan. An action or a
// mix change falls into the block holding its frame.
// The output holds the frames up to the last event, then the tail: it ends
// silencePad seconds into the first run of silenceHold seconds of silence, and
// never later than tailSeconds after the last event.
RenderStats RenderTimeline(Host& host, const Timeline& timeline, const RenderSettings& settings,
                           AudioSink& sink, const ProgressFn& progress = {});

} // namespace Norvell::Render
