#include "render/levels.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>

namespace Norvell::Render {

double DbToGain(double db) {
    return std::pow(10.0, db / 20.0);
}

double NormalizeGain(float peak, double targetDb) {
    return peak > 0.0f ? DbToGain(targetDb) / double(peak) : 1.0;
}

void GainSink::Write(const float* left, const float* right, size_t frames) {
    left_.resize(frames);
    right_.resize(frames);
    for (size_t i = 0; i < frames; ++i) {
        left_[i] = left[i] * gain_;
        right_[i] = right[i] * gain_;
        peak_ = std::max({peak_, std::fabs(left_[i]), std::fabs(right_[i])});
    }
    next_.Write(left_.data(), right_.data(), frames);
}

Spool::Spool() : file_(std::tmpfile()) {
    if (!file_)
        throw std::runtime_error(std::string("cannot create a temporary file: ") +
                                 std::strerror(errno));
}

Spool::~Spool() {
    std::fclose(file_);
}

void Spool::Write(const float* left, const float* right, size_t frames) {
    // Interleaved, so that Replay can read back any number of frames at a time.
    for (size_t i = 0; i < frames; ++i) {
        const float frame[2] = {left[i], right[i]};
        if (std::fwrite(frame, sizeof frame, 1, file_) != 1)
            throw std::runtime_error(std::string("cannot write the temporary file: ") +
                                     std::strerror(errno));
    }
}

void Spool::Replay(AudioSink& sink) {
    if (std::fflush(file_) != 0 || std::fseek(file_, 0, SEEK_SET) != 0)
        throw std::runtime_error(std::string("cannot reread the temporary file: ") +
                                 std::strerror(errno));
    constexpr size_t chunk = 4096;
    std::vector<float> frames(2 * chunk), left(chunk), right(chunk);
    for (size_t n; (n = std::fread(frames.data(), 2 * sizeof(float), chunk, file_)) > 0;) {
        for (size_t i = 0; i < n; ++i) {
            left[i] = frames[2 * i];
            right[i] = frames[2 * i + 1];
        }
        sink.Write(left.data(), right.data(), n);
    }
    if (std::ferror(file_))
        throw std::runtime_error(std::string("cannot reread the temporary file: ") +
                                 std::strerror(errno));
}

} // namespace Norvell::Render
