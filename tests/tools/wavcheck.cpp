// Checks a rendered WAV file for the end-to-end tests.
//   wavcheck FILE [--rate HZ] [--frames N] [--min-frames N] [--max-frames N]
//                 [--format 16|24|float] [--same OTHER]
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sndfile.h>
#include <string>

namespace {

int failures = 0;

void Expect(bool ok, const std::string& what) {
    if (ok) return;
    std::fprintf(stderr, "wavcheck: %s\n", what.c_str());
    ++failures;
}

std::string Contents(const char* path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: wavcheck FILE [checks]\n");
        return 2;
    }
    const char* path = argv[1];
    SF_INFO info{};
    SNDFILE* file = sf_open(path, SFM_READ, &info);
    if (!file) {
        std::fprintf(stderr, "wavcheck: %s: %s\n", path, sf_strerror(nullptr));
        return 1;
    }
    sf_close(file);
    std::printf("%s: %lld frames, %d Hz, %d channels, format 0x%X\n", path,
                static_cast<long long>(info.frames), info.samplerate, info.channels, info.format);
    Expect(info.channels == 2, "expected 2 channels");
    Expect((info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV, "expected a WAV file");

    for (int i = 2; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        const char* value = argv[i + 1];
        const long long number = std::atoll(value);
        if (option == "--rate") {
            Expect(info.samplerate == number, "rate " + std::to_string(info.samplerate));
        } else if (option == "--frames") {
            Expect(info.frames == number, "frames " + std::to_string(info.frames));
        } else if (option == "--min-frames") {
            Expect(info.frames >= number, "only " + std::to_string(info.frames) + " frames");
        } else if (option == "--max-frames") {
            Expect(info.frames <= number, std::to_string(info.frames) + " frames");
        } else if (option == "--format") {
            const int sub = info.format & SF_FORMAT_SUBMASK;
            const int want = std::strcmp(value, "16") == 0   ? SF_FORMAT_PCM_16
                             : std::strcmp(value, "24") == 0 ? SF_FORMAT_PCM_24
                                                             : SF_FORMAT_FLOAT;
            Expect(sub == want, std::string("format is not ") + value);
        } else if (option == "--same") {
            Expect(Contents(path) == Contents(value), std::string("bytes differ from ") + value);
        } else {
            std::fprintf(stderr, "wavcheck: unknown check %s\n", option.c_str());
            return 2;
        }
    }
    return failures ? 1 : 0;
}
