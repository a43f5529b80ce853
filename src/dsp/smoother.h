#pragma once
// One-pole parameter follower that snaps to its target once the remaining gap
// falls below a threshold derived from the last jump. Used for the dry/wet
// amount of the effects, advanced once per sample by its owner.
namespace Norvell::dsp {

class Smoother {
public:
    // time: smoothing time in seconds. The coefficient starts at 44100 Hz so
    // that a SetTarget before the first rate update already has a valid step.
    explicit Smoother(float time = 0.02f);
    virtual ~Smoother() = default;
    Smoother(const Smoother&) = default;
    Smoother& operator=(const Smoother&) = default;

    // New value to approach. The same value as the current target changes
    // nothing; otherwise the snap threshold is taken from the first step
    // towards it, or from the floor term when that is larger.
    virtual void SetTarget(float value);

    // Recomputes the coefficient when the rate differs from the last one.
    void SetSampleRate(float sampleRate);
    // Jumps to value at once (target and current), threshold back to its start.
    void Jump(float value);

    // Per-sample advance; returns the value to use.
    float Next() {
        const float gap = target - current;
        if (gap >= threshold || -gap >= threshold) {
            current += gap * coefficient;
        } else {
            current = target;
        }
        return current;
    }

    float Target() const { return target; }
    float Current() const { return current; }
    float Coefficient() const { return coefficient; }
    float Threshold() const { return threshold; }

    static constexpr float kMinThreshold = 0.000001f;

private:
    float target = 0.0f;
    float current = 0.0f;
    float time;
    float reserved = 0.0f;
    float coefficient = 1.0f;
    float threshold = kMinThreshold;
    float rate = 0.0f;
};

} // namespace Norvell::dsp
