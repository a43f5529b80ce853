// Checks a rendered stereo WAV file for the end-to-end tests.
//   wavcheck FILE [--rate HZ] [--frames N] [--min-frames N] [--max-frames N]
//                 [--format 16|24|float] [--min-peak LEVEL] [--max-peak LEVEL]
// LEVEL is the least peak magnitude (full scale 1) that counts as sound.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sndfile.h>
#include <string>
#include <vector>

namespace {

float PeakOf(SNDFILE* file, int channels) {
    std::vector<float> block(4096 * size_t(channels));
    float peak = 0.0f;
    for (sf_count_t n; (n = sf_readf_float(file, block.data(), 4096)) > 0;)
        for (sf_count_t i = 0; i < n * channels; ++i) peak = std::max(peak, std::fabs(block[i]));
    return peak;
}

} // namespace

int main(int argc, char** argv) {
    SF_INFO info{};
    SNDFILE* file = argc > 1 ? sf_open(argv[1], SFM_READ, &info) : nullptr;
    if (!file) return std::fprintf(stderr, "wavcheck: %s\n", sf_strerror(nullptr)), 2;
    const float peak = PeakOf(file, info.channels);
    sf_close(file);
    std::printf("%lld frames, %d Hz, %d channels, format 0x%X, peak %g\n", (long long)info.frames,
                info.samplerate, info.channels, info.format, peak);
    int failures = 0;
    if (info.channels != 2 || (info.format & SF_FORMAT_TYPEMASK) != SF_FORMAT_WAV)
        ++failures, std::fprintf(stderr, "wavcheck: not a stereo WAV file\n");
    for (int i = 2; i + 1 < argc; i += 2) {
        const std::string option = argv[i], value = argv[i + 1];
        const long long n = std::atoll(value.c_str());
        const int subtype = value == "16"   ? SF_FORMAT_PCM_16
                            : value == "24" ? SF_FORMAT_PCM_24
                                            : SF_FORMAT_FLOAT;
        const bool ok = option == "--min-peak"     ? peak >= std::atof(value.c_str())
                        : option == "--rate"       ? info.samplerate == n
                        : option == "--frames"     ? info.frames == n
                        : option == "--min-frames" ? info.frames >= n
                        : option == "--max-frames" ? info.frames <= n
                        : option == "--format"     ? (info.format & SF_FORMAT_SUBMASK) == subtype
                        : option == "--max-peak"   ? peak <= std::atof(value.c_str())
                                                   : false;
        if (!ok)
            ++failures, std::fprintf(stderr, "wavcheck: failed: %s %s\n", argv[i], argv[i + 1]);
    }
    return failures ? 1 : 0;
}
