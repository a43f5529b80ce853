// Audio file output: types and sample formats read back through libsndfile, the
// temporary file, never a partial file under the target name, and the stream copy.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sndfile.h>
#include <unistd.h>

#include "render/audiofile.h"

using namespace Norvell::Render;
namespace fs = std::filesystem;

namespace {

std::string Contents(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

struct TempDir {
    fs::path path = fs::temp_directory_path() / ("vantor_audio_" + std::to_string(getpid()));
    TempDir() {
        fs::remove_all(path);
        fs::create_directories(path);
    }
    ~TempDir() { fs::remove_all(path); }
};

// Left rises from -0.5, right is its inverse.
struct Ramp {
    std::vector<float> left = std::vector<float>(1234), right = std::vector<float>(1234);
    Ramp() {
        for (size_t i = 0; i < left.size(); ++i) right[i] = -(left[i] = float(i) / 1234 - 0.5f);
    }
    void WriteTo(AudioFileWriter& writer) const { // in two calls
        writer.Write(left.data(), right.data(), 1000);
        writer.Write(left.data() + 1000, right.data() + 1000, 234);
    }
};

} // namespace

TEST(AudioFile, EachTypeReadsBackAndReplacesTheTargetOnlyOnCommit) {
    const TempDir dir;
    const Ramp ramp;
    // type, sample format, rate, libsndfile format, largest error on read-back
    const std::tuple<FileType, SampleFormat, int, int, float> cases[] = {
        {FileType::Wav, SampleFormat::Pcm16, 44100, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1e-4f},
        {FileType::Wav, SampleFormat::Pcm24, 48000, SF_FORMAT_WAV | SF_FORMAT_PCM_24, 1e-6f},
        {FileType::Wav, SampleFormat::Float, 22050, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 0.0f},
        {FileType::Aiff, SampleFormat::Pcm24, 44100, SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 1e-6f},
        {FileType::Flac, SampleFormat::Pcm16, 44100, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 1e-4f},
        {FileType::Flac, SampleFormat::Pcm24, 96000, SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 1e-6f},
        {FileType::Vorbis, SampleFormat::Pcm24, 44100, SF_FORMAT_OGG | SF_FORMAT_VORBIS, 0.1f},
        {FileType::Opus, SampleFormat::Pcm24, 48000, SF_FORMAT_OGG | SF_FORMAT_OPUS, 0.1f},
    };
    for (const auto& [type, sample, rate, sfFormat, tolerance] : cases) {
        const std::string what = DescribeFormat({type, sample});
        const fs::path path = dir.path / (std::to_string(sfFormat) + FileTypeExtension(type));
        std::ofstream(path) << "previous take";
        for (bool commit : {false, true}) { // abandoned, then committed
            AudioFileWriter writer(path.string(), rate, {type, sample});
            ramp.WriteTo(writer);
            EXPECT_EQ(fs::path(writer.TemporaryPath()).parent_path(), dir.path); // same file system
            EXPECT_EQ(Contents(path), "previous take") << what;
            if (commit) writer.Commit();
        }
        SF_INFO info{};
        SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
        ASSERT_NE(file, nullptr) << what;
        EXPECT_EQ(info.samplerate, rate) << what;
        EXPECT_EQ(info.channels, 2) << what;
        EXPECT_EQ(info.format, sfFormat) << what;
        std::vector<float> frames(2 * 1234);
        const sf_count_t read = sf_readf_float(file, frames.data(), 1234);
        sf_close(file);
        if (IsLossy(type)) { // codec delay and padding: only the level is comparable
            EXPECT_GT(read, 1000) << what;
            continue;
        }
        ASSERT_EQ(read, 1234) << what;
        for (size_t i = 0; i < 1234; ++i) {
            ASSERT_NEAR(frames[2 * i], ramp.left[i], tolerance) << what << " frame " << i;
            ASSERT_NEAR(frames[2 * i + 1], ramp.right[i], tolerance) << what << " frame " << i;
        }
        // A PEAK chunk would carry the time of writing: the same audio must give the same bytes.
        EXPECT_EQ(Contents(path).find("PEAK"), std::string::npos) << what;
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path), {}), 8); // no temporary files left
}

TEST(AudioFile, RefusesWhatCannotBeWritten) {
    const TempDir dir;
    const auto attempt = [&](const std::string& name, uint32_t rate, OutputFormat format) {
        AudioFileWriter writer((dir.path / name).string(), rate, format);
    };
    EXPECT_THROW(attempt("missing/x.wav", 44100, {}), OutputError);
    EXPECT_THROW(attempt("x.wav", 0, {}), OutputError);
    EXPECT_THROW(attempt("x.flac", 44100, {FileType::Flac, SampleFormat::Float}), OutputError);
    EXPECT_THROW(attempt("x.opus", 44100, {FileType::Opus}), OutputError);
    EXPECT_TRUE(fs::is_empty(dir.path));
}

TEST(AudioFile, TheTypeComesFromItsNameOrTheExtension) {
    for (const auto type : {FileType::Wav, FileType::Aiff, FileType::Flac, FileType::Vorbis,
                            FileType::Opus, FileType::Raw}) {
        EXPECT_EQ(FileTypeNamed(FileTypeName(type)), type);
        EXPECT_EQ(FileTypeOfPath(std::string("dir.v2/X") + FileTypeExtension(type)), type);
    }
    EXPECT_EQ(FileTypeOfPath("take.FLAC"), FileType::Flac); // any case
    EXPECT_EQ(FileTypeOfPath("a.mp3"), std::nullopt);
    EXPECT_EQ(FileTypeOfPath("wav"), std::nullopt); // a name, not an extension
}

TEST(AudioFile, AStreamGetsTheWholeFileOnlyOnCommit) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    const Ramp ramp;
    {
        AudioFileWriter abandoned(fds[1], 44100, {FileType::Raw, SampleFormat::Float});
        ramp.WriteTo(abandoned);
    }
    {
        AudioFileWriter writer(fds[1], 44100, {FileType::Raw, SampleFormat::Float});
        ramp.WriteTo(writer);
        writer.Commit();
    }
    close(fds[1]);
    std::vector<float> frames(2 * 1234 + 1); // one more to see that nothing else came
    size_t bytes = 0;
    for (ssize_t n; (n = read(fds[0], reinterpret_cast<char*>(frames.data()) + bytes,
                              frames.size() * sizeof(float) - bytes)) > 0;)
        bytes += size_t(n);
    close(fds[0]);
    ASSERT_EQ(bytes, 2 * 1234 * sizeof(float));
    for (size_t i = 0; i < 1234; ++i) {
        ASSERT_EQ(frames[2 * i], ramp.left[i]);
        ASSERT_EQ(frames[2 * i + 1], ramp.right[i]);
    }
}
