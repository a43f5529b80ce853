#include "render/mastermix.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace Norvell::Render {

double VolumeGain(uint8_t cc7) {
    const double v = std::min<uint8_t>(cc7, 127) / 127.0;
    return v * v;
}

PanGains PanLaw(uint8_t cc10) {
    // 1..127 spread evenly so that 64 is the exact centre; 0 counts as 1.
    const double position = (std::clamp<int>(cc10, 1, 127) - 64) / 63.0; // -1 .. 1
    const double fade = std::cos(std::fabs(position) * std::numbers::pi / 2.0);
    return position < 0 ? PanGains{1.0, fade} : PanGains{fade, 1.0};
}

void MasterMix::SetVolume(uint8_t cc7) {
    volume_ = VolumeGain(cc7);
}

void MasterMix::SetPan(uint8_t cc10) {
    pan_ = PanLaw(cc10);
}

void MasterMix::Apply(float* left, float* right, size_t frames) {
    const double targetLeft = volume_ * pan_.left, targetRight = volume_ * pan_.right;
    if (frames == 0) return;
    if (targetLeft == appliedLeft_ && targetRight == appliedRight_) {
        if (targetLeft == 1.0 && targetRight == 1.0) return;
        for (size_t i = 0; i < frames; ++i) {
            left[i] = float(left[i] * targetLeft);
            right[i] = float(right[i] * targetRight);
        }
        return;
    }
    const double stepLeft = (targetLeft - appliedLeft_) / double(frames);
    const double stepRight = (targetRight - appliedRight_) / double(frames);
    for (size_t i = 0; i < frames; ++i) {
        left[i] = float(left[i] * (appliedLeft_ + stepLeft * double(i + 1)));
        right[i] = float(right[i] * (appliedRight_ + stepRight * double(i + 1)));
    }
    appliedLeft_ = targetLeft;
    appliedRight_ = targetRight;
}

} // namespace Norvell::Render
