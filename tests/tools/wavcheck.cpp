// Checks a rendered stereo audio file for the end-to-end tests.
//   wavcheck FILE [--type wav|flac|...] [--rate HZ] [--frames N] [--min-frames N]
//                 [--max-frames N] [--format 16|24|float] [--min-peak LEVEL]
//                 [--max-peak LEVEL] [--max-right-peak LEVEL] [--same-as OTHER]
// LEVEL is a peak magnitude (full scale 1). The type is WAV unless --type says
// otherwise. --same-as: OTHER holds the same samples (any file type) to within one
// step of 24 bits (libsndfile rounds float to integer slightly differently per type).
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sndfile.h>
#include <string>
#include <vector>

namespace {

struct Audio {
    SF_INFO info{};
    std::vector<float> samples; // interleaved
    bool ok = false;
};

Audio Read(const char* path) {
    Audio audio;
    SNDFILE* file = sf_open(path, SFM_READ, &audio.info);
    if (!file) return audio;
    std::vector<float> block(4096 * size_t(audio.info.channels));
    for (sf_count_t n; (n = sf_readf_float(file, block.data(), 4096)) > 0;)
        audio.samples.insert(audio.samples.end(), block.begin(),
                             block.begin() + n * audio.info.channels);
    sf_close(file);
    audio.ok = true;
    return audio;
}

float Peak(const Audio& audio, int channel) { // -1: all channels
    float peak = 0.0f;
    const int channels = audio.info.channels;
    for (size_t i = 0; i < audio.samples.size(); ++i)
        if (channel < 0 || int(i % size_t(channels)) == channel)
            peak = std::max(peak, std::fabs(audio.samples[i]));
    return peak;
}

int TypeBits(const std::string& type) {
    if (type == "flac") return SF_FORMAT_FLAC;
    if (type == "ogg" || type == "opus") return SF_FORMAT_OGG;
    if (type == "aiff") return SF_FORMAT_AIFF;
    return SF_FORMAT_WAV;
}

} // namespace

int main(int argc, char** argv) {
    const Audio audio = argc > 1 ? Read(argv[1]) : Audio{};
    if (!audio.ok) return std::fprintf(stderr, "wavcheck: %s\n", sf_strerror(nullptr)), 2;
    const SF_INFO& info = audio.info;
    const float peak = Peak(audio, -1);
    std::printf("%lld frames, %d Hz, %d channels, format 0x%X, peak %g\n", (long long)info.frames,
                info.samplerate, info.channels, info.format, peak);
    int failures = 0;
    std::string type = "wav";
    for (int i = 2; i + 1 < argc; i += 2)
        if (std::string(argv[i]) == "--type") type = argv[i + 1];
    if (info.channels != 2 || (info.format & SF_FORMAT_TYPEMASK) != TypeBits(type))
        ++failures, std::fprintf(stderr, "wavcheck: not a stereo %s file\n", type.c_str());
    for (int i = 2; i + 1 < argc; i += 2) {
        const std::string option = argv[i], value = argv[i + 1];
        const long long n = std::atoll(value.c_str());
        const double level = std::atof(value.c_str());
        const int subtype = value == "16"   ? SF_FORMAT_PCM_16
                            : value == "24" ? SF_FORMAT_PCM_24
                                            : SF_FORMAT_FLOAT;
        bool ok = false;
        if (option == "--same-as") {
            const Audio other = Read(value.c_str());
            ok = other.ok && other.samples.size() == audio.samples.size();
            for (size_t k = 0; ok && k < audio.samples.size(); ++k)
                ok = std::fabs(other.samples[k] - audio.samples[k]) <= 1.5f / 8388608.0f;
        } else {
            ok = option == "--type"             ? true
                 : option == "--min-peak"       ? peak >= level
                 : option == "--max-peak"       ? peak <= level
                 : option == "--max-right-peak" ? Peak(audio, 1) <= level
                 : option == "--rate"           ? info.samplerate == n
                 : option == "--frames"         ? info.frames == n
                 : option == "--min-frames"     ? info.frames >= n
                 : option == "--max-frames"     ? info.frames <= n
                 : option == "--format"         ? (info.format & SF_FORMAT_SUBMASK) == subtype
                                                : false;
        }
        if (!ok)
            ++failures, std::fprintf(stderr, "wavcheck: failed: %s %s\n", argv[i], argv[i + 1]);
    }
    return failures ? 1 : 0;
}
