#pragma once
// One-line progress bar on stderr with elapsed time and speed.
#include <chrono>
#include <cstdint>
#include <string>

#include "render/renderloop.h"

namespace Norvell::Render {

// Audio time rendered per second of wall time: "8.1x" is eight times faster than
// real time. Short enough to fall below the clock's resolution: "-".
std::string FormatSpeed(double elapsedSeconds, int64_t frames, uint32_t sampleRate);

// "-6.0 dBFS", or "-inf dBFS" for digital silence.
std::string FormatDbfs(float peak);

class ProgressBar {
public:
    ProgressBar(bool enabled, uint32_t sampleRate);

    // Redraws at most ten times a second.
    void Update(const RenderProgress& progress, int voices);
    // Erases the bar.
    void Finish();

    double ElapsedSeconds() const;

private:
    bool enabled_;
    bool drawn_ = false;
    uint32_t sampleRate_;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point lastDraw_;
};

} // namespace Norvell::Render
