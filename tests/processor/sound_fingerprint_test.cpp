// Pins the sound of every shipped preset: a seeded render of chords and a
// melody is reduced to a fingerprint per window (RMS in dB, zero crossings,
// spectral centroid) and compared with the committed reference, so that no
// change alters the sound unnoticed. After a deliberate change of the sound,
// rewrite the reference with scripts/update-fingerprints.sh.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cases.h"
#include "test_support.h"

namespace {

using Norvell::Compare::BuildCases;
using Norvell::Compare::Case;
using Norvell::Compare::RenderCase;

constexpr size_t kWindow = 4096; // frames per window, one FFT each
const std::string kReference =
    std::string(VANTOR_SOURCE_DIR) + "/tests/data/sound_fingerprints.json";
const std::string kPresets = std::string(VANTOR_SOURCE_DIR) + "/data/presets";

struct Window {
    double rmsDb;
    int crossings;
    double centroidHz;
};

void Fft(std::vector<std::complex<double>>& x) {
    const size_t n = x.size();
    for (size_t i = 1, j = 0; i < n; ++i) {
        size_t bit = n >> 1;
        for (; j & bit; bit >>= 1) j ^= bit;
        j ^= bit;
        if (i < j) std::swap(x[i], x[j]);
    }
    for (size_t len = 2; len <= n; len <<= 1) {
        const std::complex<double> step = std::polar(1.0, -2.0 * M_PI / double(len));
        for (size_t i = 0; i < n; i += len) {
            std::complex<double> w = 1.0;
            for (size_t k = 0; k < len / 2; ++k, w *= step) {
                const auto a = x[i + k], b = x[i + k + len / 2] * w;
                x[i + k] = a + b;
                x[i + k + len / 2] = a - b;
            }
        }
    }
}

// Mid channel (left + right) of the interleaved output, window by window.
std::vector<Window> Fingerprint(const std::vector<float>& stereo, double rate) {
    std::vector<Window> out;
    const size_t frames = stereo.size() / 2;
    for (size_t start = 0; start + kWindow <= frames; start += kWindow) {
        std::vector<std::complex<double>> spectrum(kWindow);
        double energy = 0.0;
        int crossings = 0;
        double previous = 0.0;
        for (size_t i = 0; i < kWindow; ++i) {
            const double x = 0.5 * (double(stereo[2 * (start + i)]) + stereo[2 * (start + i) + 1]);
            energy += x * x;
            if (i > 0 && (x < 0.0) != (previous < 0.0)) ++crossings;
            previous = x;
            const double hann = 0.5 - 0.5 * std::cos(2.0 * M_PI * double(i) / double(kWindow));
            spectrum[i] = x * hann;
        }
        Fft(spectrum);
        double weighted = 0.0, total = 0.0;
        for (size_t k = 1; k < kWindow / 2; ++k) {
            const double magnitude = std::abs(spectrum[k]);
            weighted += magnitude * double(k) * rate / double(kWindow);
            total += magnitude;
        }
        const double rms = std::sqrt(energy / double(kWindow));
        out.push_back(
            {20.0 * std::log10(rms + 1e-12), crossings, total > 0 ? weighted / total : 0.0});
    }
    return out;
}

std::vector<Case> PresetCases() {
    Norvell::HostCore::Engine probe(VantorTest::EngineFile("vantorengine.so"));
    probe.Start(48000.0f);
    std::vector<Case> cases;
    for (auto& c : BuildCases(kPresets, probe.ReadParams()))
        if (c.name.rfind("preset ", 0) == 0) cases.push_back(std::move(c));
#ifdef VANTOR_SANITIZED_BUILD
    // The plain build pins every preset; here a few suffice to exercise the path
    // under the sanitizers, whose slowdown would make all of them take minutes.
    std::vector<Case> some;
    for (size_t i = 0; i < cases.size(); i += 8) some.push_back(std::move(cases[i]));
    cases = std::move(some);
#endif
    return cases;
}

TEST(SoundFingerprint, EveryPresetMatchesTheReference) {
    const auto cases = PresetCases();
    ASSERT_FALSE(cases.empty());
    nlohmann::json rendered;
    for (const auto& c : cases) {
        auto& windows = rendered[c.name];
        windows = nlohmann::json::array();
        for (const auto& w :
             Fingerprint(RenderCase(VantorTest::EngineFile("vantorengine.so"), c), c.sampleRate))
            windows.push_back({std::round(w.rmsDb * 1000.0) / 1000.0, w.crossings,
                               std::round(w.centroidHz * 10.0) / 10.0});
    }
    if (std::getenv("VANTOR_WRITE_FINGERPRINTS")) {
        // One line per preset keeps the reference's diffs readable.
        std::ofstream out(kReference);
        out << "{\n";
        for (auto it = rendered.begin(); it != rendered.end(); ++it)
            out << " " << nlohmann::json(it.key()).dump() << ": " << it.value().dump()
                << (std::next(it) == rendered.end() ? "\n" : ",\n");
        out << "}\n";
        GTEST_SKIP() << "reference rewritten: " << kReference;
    }

    std::ifstream file(kReference);
    ASSERT_TRUE(file) << "no reference at " << kReference;
    const auto reference = nlohmann::json::parse(file);
#ifndef VANTOR_SANITIZED_BUILD
    EXPECT_EQ(reference.size(), rendered.size()) << "presets added or removed";
#endif
    for (const auto& [name, windows] : rendered.items()) {
        ASSERT_TRUE(reference.contains(name)) << name << " has no reference";
        const auto& expected = reference[name];
        ASSERT_EQ(expected.size(), windows.size()) << name;
        for (size_t i = 0; i < windows.size(); ++i) {
            const double db = windows[i][0], wantDb = expected[i][0];
            SCOPED_TRACE(name + ", window " + std::to_string(i));
            EXPECT_NEAR(db, wantDb, 0.05);
            if (wantDb < -90.0) continue; // crossings and centroid of near silence are noise
            EXPECT_NEAR(int(windows[i][1]), int(expected[i][1]), 2);
            const double centroid = windows[i][2], wantCentroid = expected[i][2];
            EXPECT_NEAR(centroid, wantCentroid, 1.0 + 0.002 * wantCentroid);
        }
    }
}

} // namespace
