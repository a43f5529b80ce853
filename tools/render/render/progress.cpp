#include "render/progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace Norvell::Render {

std::string FormatSpeed(double elapsedSeconds, int64_t frames, uint32_t sampleRate) {
    if (!(elapsedSeconds > 0.0) || frames <= 0 || sampleRate == 0) return "-";
    const double speed = double(frames) / sampleRate / elapsedSeconds;
    char text[32];
    std::snprintf(text, sizeof text, speed < 1.0 ? "%.2fx" : "%.1fx", speed);
    return text;
}

std::string FormatDbfs(float peak) {
    if (!(peak > 0.0f)) return "-inf dBFS";
    char text[32];
    std::snprintf(text, sizeof text, "%.1f dBFS", 20.0 * std::log10(double(peak)));
    return text;
}

ProgressBar::ProgressBar(bool enabled, uint32_t sampleRate)
    : enabled_(enabled), sampleRate_(sampleRate), start_(std::chrono::steady_clock::now()),
      lastDraw_(start_) {}

double ProgressBar::ElapsedSeconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

void ProgressBar::Update(const RenderProgress& p, int voices) {
    if (!enabled_) return;
    const auto now = std::chrono::steady_clock::now();
    if (drawn_ && now - lastDraw_ < std::chrono::milliseconds(100)) return;
    lastDraw_ = now;
    drawn_ = true;

    constexpr int width = 30;
    const double elapsed = ElapsedSeconds();
    const double seconds = double(p.frames) / sampleRate_;
    char bar[width + 1];
    char timing[64];
    if (p.frames < p.endFrame) {
        const int filled = int(double(width) * double(p.frames) / double(p.endFrame));
        for (int i = 0; i < width; ++i) bar[i] = i < filled ? '#' : '.';
        std::snprintf(timing, sizeof timing, "%3d%%  %.1f / %.1f s",
                      int(100.0 * double(p.frames) / double(p.endFrame)), seconds,
                      double(p.endFrame) / sampleRate_);
    } else {
        for (int i = 0; i < width; ++i) bar[i] = '#';
        std::snprintf(timing, sizeof timing, "tail  %.1f s + %.1f s",
                      double(p.endFrame) / sampleRate_,
                      double(p.frames - p.endFrame) / sampleRate_);
    }
    bar[width] = '\0';
    std::fprintf(stderr, "\r[%s] %s  elapsed %.1f s  %s real time  voices %2d\x1b[K", bar, timing,
                 elapsed, FormatSpeed(elapsed, p.frames, sampleRate_).c_str(), voices);
    std::fflush(stderr);
}

void ProgressBar::Finish() {
    if (!enabled_ || !drawn_) return;
    std::fprintf(stderr, "\r\x1b[K");
    std::fflush(stderr);
    drawn_ = false;
}

} // namespace Norvell::Render
