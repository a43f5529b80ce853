#pragma once
// Master volume (CC 7) and pan (CC 10) on the engine's stereo output.
//   volume: gain (v / 127)^2, i.e. 40 log10(v / 127) dB: 100 gives -4.2 dB, 0 silence.
//   pan: a balance with a sine law, unity at the centre (64). Turning towards one
//   side fades the other channel by cos(d * pi / 2), d = 0 at the centre and 1 at
//   the end (0 and 1 both hard left, 127 hard right); d = 0.5 is -3 dB.
// Until the first CC 7 or CC 10 of the file the output passes unchanged.
#include <cstddef>
#include <cstdint>

namespace Norvell::Render {

double VolumeGain(uint8_t cc7);
struct PanGains {
    double left, right;
};
PanGains PanLaw(uint8_t cc10);

class MasterMix {
public:
    void SetVolume(uint8_t cc7);
    void SetPan(uint8_t cc10);
    // Scales a block, moving linearly from the gains of the previous block to the
    // current ones so that a step makes no click.
    void Apply(float* left, float* right, size_t frames);

private:
    double volume_ = 1.0;
    PanGains pan_{1.0, 1.0};
    double appliedLeft_ = 1.0, appliedRight_ = 1.0;
};

} // namespace Norvell::Render
