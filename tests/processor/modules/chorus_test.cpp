#include "effecttest.h"
#include "processor/modules/chorus.h"

// 2 x type: 0 gives one voice, exactly 1 two, else three; at amount and width 0 their DC adds up.
TEST(Chorus, VoiceCountFromType) {
    for (auto [type, voices] : {std::pair{0.0f, 1.0f}, {0.5f, 2.0f}, {0.3f, 3.0f}, {1.0f, 3.0f}}) {
        Fx<ChorusState> c({type, 0.7f, 0, 0.4f, 0, 0.5f});
        EXPECT_NEAR(c.Run(Constant(32 * 1500, 1.0f)).left.back(), voices, 1e-4f) << type;
    }
}

// The chorus written out from its description, sample by sample: smoothed
// settings, a stereo sine spreading the two delays, up to three voice sines
// sweeping an exponential delay, and a quadratic read of each line.
struct ChorusModel {
    float type, rate, amount, delay, width, stereoRate, dryWet, sr;
    float mix = 0, base = 0, sweep = 0, wide = 0, stereoPhase = 0, phase[3] = {};
    std::vector<float> line[2] = {};
    static float Wrap(float p) { return p - 6.2831855f * std::trunc(p / 6.2831855f); }
    float Read(const std::vector<float>& x, float seconds) const {
        const float D = seconds * sr;
        const int n = static_cast<int>(D);
        const float t = D - static_cast<float>(n);
        auto y = [&](int k) { // k samples behind the newest
            const int at = static_cast<int>(x.size()) - 1 - n - k;
            return at >= 0 ? x[at] : 0.0f;
        };
        return y(0) * (t * t - t) / 2 + y(1) * (1 - t * t) + y(2) * (t + t * t) / 2;
    }
    std::pair<float, float> Step(float xl, float xr) {
        const float smooth = 1.0f - std::exp(-1.0f / (sr * 0.02f));
        mix += (dryWet - mix) * smooth;
        base += (delay * 0.025f - base) * smooth;
        sweep += (amount * 0.4f - sweep) * smooth;
        wide += (width - wide) * smooth;
        stereoPhase = Wrap(stereoPhase + stereoRate * 1.5f * 6.2831855f / sr);
        const float s = std::sin(stereoPhase);
        const float offL = (s + 1) * wide * 0.05f, offR = (1 - s) * wide * 0.05f;
        line[0].push_back(xl);
        line[1].push_back(xr);
        const int voices = 2 * type == 0 ? 1 : 2 * type == 1 ? 2 : 3;
        const float omega[3] = {6.2831855f, 4.442883f, 2.2214415f};
        float wetL = 0, wetR = 0;
        for (int k = 0; k < voices; ++k) {
            phase[k] = Wrap(phase[k] + rate * omega[k] / sr);
            const float p = (std::sin(phase[k]) * sweep + 1) * 4095.5f;
            const int i = static_cast<int>(p);
            auto table = [](int j) { return std::pow(4.0f, j * 2.0f / 8191.0f - 1.0f); };
            const float e = (1 - (p - i)) * table(i) + (p - i) * table(i + 1);
            wetL += Read(line[0], e * base + offL);
            wetR += Read(line[1], e * base + offR);
        }
        return {(1 - mix) * xl + mix * wetL, (1 - mix) * xr + mix * wetR};
    }
};

TEST(Chorus, MatchesTheModelSampleBySample) {
    struct Case {
        float type, rate, amount, delay, width, stereoRate, dryWet, sr;
    };
    for (const Case c : {Case{0.3f, 0.7f, 0.5f, 0.4f, 0.6f, 0.5f, 0.8f, 44100.0f},
                         Case{0.5f, 1.0f, 1.0f, 1.0f, 0.0f, 0.0f, 1.0f, 48000.0f},
                         Case{0.0f, 0.2f, 0.0f, 0.1f, 1.0f, 1.0f, 0.5f, 96000.0f}}) {
        Fx<ChorusState> fx({c.type, c.rate, c.amount, c.delay, c.width, c.stereoRate}, c.dryWet);
        ChorusModel model{c.type, c.rate, c.amount, c.delay, c.width, c.stereoRate, c.dryWet, c.sr};
        const Signal x = Noise(32 * 2000);
        const Signal y = fx.Run(x, Context(c.sr));
        float worst = 0.0f;
        for (size_t n = 0; n < x.left.size(); ++n) {
            const auto [l, r] = model.Step(x.left[n], x.right[n]);
            worst = std::max({worst, std::fabs(l - y.left[n]), std::fabs(r - y.right[n])});
        }
        EXPECT_LT(worst, 2e-4f) << "type " << c.type << " rate " << c.sr;
    }
}
