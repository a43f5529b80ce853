#pragma once
// Drives an engine at its fixed block size for hosts whose blocks have any
// length: a carry buffer holds the frames rendered beyond the host's block, and
// a time-stamped queue applies each action at the first engine block boundary at
// or after its frame (never early, at most one engine block minus one frame late).
// Everything is allocated up front: Queue and Process never allocate or lock.
#include <cstdint>
#include <vector>

#include "hostcore/midimap.h"

namespace Norvell::HostCore {

// What the block processor needs from an engine; the real one is Engine (engine.h).
class Host {
public:
    virtual ~Host() = default;
    virtual void SetParam(uint32_t id, float value) = 0;
    virtual void UpdateVoiceSetup() = 0;
    virtual void ProcessMidi(uint32_t message) = 0;
    virtual void Render(float* left, float* right, uint32_t frames, float sampleRate,
                        float tempo) = 0;
    virtual void CollectChanges() = 0;
};

class BlockProcessor {
public:
    BlockProcessor(Host& host, uint32_t blockSize, float sampleRate, size_t queueCapacity = 4096);

    void SetSampleRate(float rate) { sampleRate_ = rate; }
    void SetTempo(float bpm) { tempo_ = bpm; }
    float Tempo() const { return tempo_; }

    // Queues an action at `offset` frames into the next Process call. Actions must be
    // queued in time order; an earlier one is moved to the latest queued frame.
    // Returns false (and drops the action) when the queue is full.
    bool Queue(HostAction action, uint32_t offset);

    // Renders `frames` frames. Per engine block: Param and Tempo actions due,
    // UpdateVoiceSetup, Midi and Immediate actions in order, Render, CollectChanges.
    void Process(float* left, float* right, uint32_t frames);

    int64_t FramesDelivered() const { return delivered_; }
    size_t Dropped() const { return dropped_; }

private:
    void RunBlock();

    Host& host_;
    const uint32_t block_;
    float sampleRate_;
    float tempo_ = 120.0f;

    std::vector<HostAction> queue_; // ring
    size_t head_ = 0, count_ = 0, dropped_ = 0;
    int64_t lastQueued_ = 0;

    std::vector<float> carryLeft_, carryRight_;
    uint32_t carryPos_ = 0; // next frame of the carry to deliver; block_ when empty
    int64_t delivered_ = 0; // frames handed to the host so far
    int64_t rendered_ = 0;  // frames rendered by the engine so far
};

} // namespace Norvell::HostCore
