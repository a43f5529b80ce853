#pragma once
// Minimum-phase band-limited unit step: a Kaiser-windowed sinc made
// minimum-phase through the real cepstrum, integrated by a running sum and
// normalised by its last value. Header-only so the test can regenerate it.
#include <algorithm>
#include <cmath>
#include <complex>
#include <cstddef>
#include <numbers>
#include <utility>
#include <vector>

namespace Norvell::Vantor::Tools {

struct StepTableDesign {
    int oversampling = 64;  // points per output sample
    int halfWidth = 16;     // sinc extent, output samples each side
    double beta = 4.22;     // Kaiser window shape
    double cutoff = 0.9005; // fraction of the Nyquist frequency
    int fftSize = 16384;    // zero padding of the cepstrum
    int length = 2048;      // table entries kept
};

// In-place iterative radix-2 FFT; inverse scales by 1/n.
inline void Fft(std::vector<std::complex<double>>& a, bool inverse) {
    const size_t n = a.size();
    for (size_t i = 1, j = 0; i < n; ++i) {
        size_t bit = n >> 1;
        for (; (j & bit) != 0; bit >>= 1) j ^= bit;
        j ^= bit;
        if (i < j) std::swap(a[i], a[j]);
    }
    for (size_t len = 2; len <= n; len <<= 1) {
        const double angle = (inverse ? 2.0 : -2.0) * std::numbers::pi / static_cast<double>(len);
        const std::complex<double> step(std::cos(angle), std::sin(angle));
        for (size_t start = 0; start < n; start += len) {
            std::complex<double> w(1.0, 0.0);
            for (size_t k = 0; k < len / 2; ++k) {
                const std::complex<double> u = a[start + k];
                const std::complex<double> v = a[start + k + len / 2] * w;
                a[start + k] = u + v;
                a[start + k + len / 2] = u - v;
                w *= step;
            }
        }
    }
    if (inverse)
        for (auto& x : a) x /= static_cast<double>(n);
}

// Zeroth-order modified Bessel function of the first kind (power series).
inline double BesselI0(double x) {
    double sum = 1.0;
    double term = 1.0;
    const double q = x * x / 4.0;
    for (int k = 1; k < 64 && term > 1e-17 * sum; ++k) {
        term *= q / (static_cast<double>(k) * static_cast<double>(k));
        sum += term;
    }
    return sum;
}

// Linear-phase impulse: windowed sinc over +-halfWidth samples, odd length
// so the centre point falls exactly on t = 0.
inline std::vector<double> WindowedSinc(const StepTableDesign& d) {
    const int length = 2 * d.halfWidth * d.oversampling + 1;
    std::vector<double> h(static_cast<size_t>(length));
    const double centre = 0.5 * static_cast<double>(length - 1);
    const double norm = BesselI0(d.beta);
    for (int n = 0; n < length; ++n) {
        const double t = (static_cast<double>(n) - centre) / d.oversampling; // in samples
        const double x = d.cutoff * t;
        const double sinc =
            x == 0.0 ? 1.0 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
        const double r = (static_cast<double>(n) - centre) / centre; // -1..1
        const double window = BesselI0(d.beta * std::sqrt(std::max(0.0, 1.0 - r * r))) / norm;
        h[static_cast<size_t>(n)] = sinc * window;
    }
    return h;
}

// Minimum-phase counterpart with the same magnitude response: fold the real
// cepstrum onto its causal half and exponentiate.
inline std::vector<double> MinimumPhase(const std::vector<double>& h, int fftSize, int keep) {
    const size_t n = static_cast<size_t>(fftSize);
    std::vector<std::complex<double>> a(n);
    for (size_t i = 0; i < h.size() && i < n; ++i) a[i] = h[i];
    Fft(a, false);
    for (auto& x : a) x = std::log(std::max(std::abs(x), 1e-12));
    Fft(a, true);
    for (size_t i = 1; i < n / 2; ++i) a[i] = 2.0 * a[i].real();
    a[0] = a[0].real();
    a[n / 2] = a[n / 2].real();
    for (size_t i = n / 2 + 1; i < n; ++i) a[i] = 0.0;
    Fft(a, false);
    for (auto& x : a) x = std::exp(x);
    Fft(a, true);
    std::vector<double> out(static_cast<size_t>(keep));
    for (size_t i = 0; i < out.size(); ++i) out[i] = a[i].real();
    return out;
}

// The step table: running sum of the minimum-phase impulse over its last value.
inline std::vector<double> GenerateStepTable(const StepTableDesign& d = {}) {
    std::vector<double> step = MinimumPhase(WindowedSinc(d), d.fftSize, d.length);
    double sum = 0.0;
    for (double& x : step) {
        sum += x;
        x = sum;
    }
    for (double& x : step) x /= sum;
    return step;
}

} // namespace Norvell::Vantor::Tools
