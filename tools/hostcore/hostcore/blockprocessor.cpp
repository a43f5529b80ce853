#include "hostcore/blockprocessor.h"

#include <algorithm>

namespace Norvell::HostCore {

BlockProcessor::BlockProcessor(Host& host, uint32_t blockSize, float sampleRate,
                               size_t queueCapacity)
    : host_(host), block_(blockSize), sampleRate_(sampleRate),
      queue_(std::max<size_t>(1, queueCapacity)), carryLeft_(blockSize), carryRight_(blockSize),
      carryPos_(blockSize) {}

bool BlockProcessor::Queue(HostAction action, uint32_t offset) {
    if (count_ == queue_.size()) {
        ++dropped_;
        return false;
    }
    action.frame = std::max(delivered_ + int64_t(offset), lastQueued_);
    lastQueued_ = action.frame;
    queue_[(head_ + count_) % queue_.size()] = action;
    ++count_;
    return true;
}

void BlockProcessor::Process(float* left, float* right, uint32_t frames) {
    uint32_t done = 0;
    while (done < frames) {
        if (carryPos_ == block_) {
            RunBlock();
            carryPos_ = 0;
        }
        const uint32_t n = std::min(block_ - carryPos_, frames - done);
        std::copy_n(carryLeft_.data() + carryPos_, n, left + done);
        std::copy_n(carryRight_.data() + carryPos_, n, right + done);
        carryPos_ += n;
        done += n;
    }
    delivered_ += frames;
}

void BlockProcessor::RunBlock() {
    // Due: everything stamped at or before this block's first frame.
    size_t due = 0;
    while (due < count_ && queue_[(head_ + due) % queue_.size()].frame <= rendered_) ++due;

    for (size_t i = 0; i < due; ++i) {
        const HostAction& a = queue_[(head_ + i) % queue_.size()];
        if (a.kind == HostAction::Kind::Param)
            host_.SetParam(a.id, a.value);
        else if (a.kind == HostAction::Kind::Tempo)
            tempo_ = a.value;
    }
    // UpdateVoiceSetup clears the trigger bits, so it must come before the notes.
    host_.UpdateVoiceSetup();
    for (size_t i = 0; i < due; ++i) {
        const HostAction& a = queue_[(head_ + i) % queue_.size()];
        if (a.kind == HostAction::Kind::Midi)
            host_.ProcessMidi(a.message);
        else if (a.kind == HostAction::Kind::Immediate)
            host_.SetParam(a.id, a.value);
    }
    head_ = (head_ + due) % queue_.size();
    count_ -= due;

    host_.Render(carryLeft_.data(), carryRight_.data(), block_, sampleRate_, tempo_);
    host_.CollectChanges();
    rendered_ += block_;
}

} // namespace Norvell::HostCore
