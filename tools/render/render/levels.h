#pragma once
// Output level after rendering: a fixed gain, or a peak normalisation that needs
// the whole render first (it is spooled to an anonymous temporary file).
#include <cstdint>
#include <cstdio>
#include <vector>

#include "render/renderloop.h"

namespace Norvell::Render {

double DbToGain(double db);
// Gain that brings `peak` to `targetDb` dBFS; 1 for silence.
double NormalizeGain(float peak, double targetDb);

// Scales the audio on its way to the next sink and tracks the resulting peak.
class GainSink final : public AudioSink {
public:
    GainSink(AudioSink& next, double gain) : next_(next), gain_(float(gain)) {}
    void Write(const float* left, const float* right, size_t frames) override;
    float Peak() const { return peak_; }

private:
    AudioSink& next_;
    float gain_;
    float peak_ = 0.0f;
    std::vector<float> left_, right_;
};

// Keeps the audio in a temporary file until Replay hands it to another sink.
class Spool final : public AudioSink {
public:
    Spool(); // throws std::runtime_error when no temporary file can be made
    ~Spool() override;
    Spool(const Spool&) = delete;
    Spool& operator=(const Spool&) = delete;

    void Write(const float* left, const float* right, size_t frames) override;
    void Replay(AudioSink& sink);

private:
    std::FILE* file_;
};

} // namespace Norvell::Render
