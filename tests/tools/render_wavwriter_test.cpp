// WAV output: formats, the temporary file, and never a partial file under the target name.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sndfile.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "render/wavwriter.h"

using namespace Norvell::Render;
namespace fs = std::filesystem;

namespace {

class WavWriterTest : public ::testing::Test {
protected:
    fs::path dir;

    void SetUp() override {
        dir = fs::temp_directory_path() /
              ("vantor_wav_" + std::to_string(getpid()) + "_" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }

    size_t EntryCount() const {
        return size_t(std::distance(fs::directory_iterator(dir), fs::directory_iterator()));
    }
};

std::string Contents(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void WriteRamp(WavWriter& writer, size_t frames) {
    std::vector<float> left(frames), right(frames);
    for (size_t i = 0; i < frames; ++i) {
        left[i] = float(i) / float(frames) - 0.5f;
        right[i] = -left[i];
    }
    writer.Write(left.data(), right.data(), frames);
}

} // namespace

TEST_F(WavWriterTest, WritesStereoInEachFormat) {
    const struct {
        SampleFormat format;
        int subtype;
        uint32_t rate;
    } cases[] = {{SampleFormat::Pcm16, SF_FORMAT_PCM_16, 44100},
                 {SampleFormat::Pcm24, SF_FORMAT_PCM_24, 48000},
                 {SampleFormat::Float, SF_FORMAT_FLOAT, 22050}};
    for (const auto& c : cases) {
        const fs::path path = dir / ("out" + std::to_string(c.subtype) + ".wav");
        {
            WavWriter writer(path.string(), c.rate, c.format);
            WriteRamp(writer, 1000);
            WriteRamp(writer, 234);
            writer.Commit();
        }
        SF_INFO info{};
        SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(info.frames, 1234);
        EXPECT_EQ(info.samplerate, int(c.rate));
        EXPECT_EQ(info.channels, 2);
        EXPECT_EQ(info.format & SF_FORMAT_TYPEMASK, SF_FORMAT_WAV);
        EXPECT_EQ(info.format & SF_FORMAT_SUBMASK, c.subtype);
        float frame[2];
        sf_seek(file, 250, SEEK_SET);
        sf_readf_float(file, frame, 1);
        EXPECT_NEAR(frame[0], -0.25f, 1e-4f);
        EXPECT_NEAR(frame[1], 0.25f, 1e-4f);
        sf_close(file);
    }
    EXPECT_EQ(EntryCount(), 3u); // no temporary files left behind
}

TEST_F(WavWriterTest, NothingAppearsUnderTheTargetNameUntilCommit) {
    const fs::path path = dir / "take.wav";
    {
        WavWriter writer(path.string(), 44100, SampleFormat::Pcm24);
        WriteRamp(writer, 4096);
        EXPECT_FALSE(fs::exists(path));
        EXPECT_TRUE(fs::exists(writer.TemporaryPath()));
        EXPECT_EQ(fs::path(writer.TemporaryPath()).parent_path(), dir); // same file system
    }
    EXPECT_EQ(EntryCount(), 0u); // abandoned: the temporary file is gone too
}

TEST_F(WavWriterTest, AnAbandonedRenderLeavesAnOlderFileIntact) {
    const fs::path path = dir / "take.wav";
    std::ofstream(path) << "previous take";
    {
        WavWriter writer(path.string(), 44100, SampleFormat::Float);
        WriteRamp(writer, 100);
    }
    EXPECT_EQ(Contents(path), "previous take");
    EXPECT_EQ(EntryCount(), 1u);
}

TEST_F(WavWriterTest, UnwritableTargetsFailBeforeRendering) {
    try {
        WavWriter writer((dir / "missing" / "take.wav").string(), 44100, SampleFormat::Pcm16);
        FAIL();
    } catch (const OutputError& e) {
        EXPECT_NE(std::string(e.what()).find("cannot write"), std::string::npos);
    }
    EXPECT_THROW(WavWriter((dir / "x.wav").string(), 0, SampleFormat::Pcm16), OutputError);
    EXPECT_EQ(EntryCount(), 0u);
}

TEST_F(WavWriterTest, SameAudioGivesTheSameBytes) {
    for (const char* name : {"a.wav", "b.wav"}) {
        WavWriter writer((dir / name).string(), 44100, SampleFormat::Float);
        WriteRamp(writer, 777);
        writer.Commit();
    }
    EXPECT_EQ(Contents(dir / "a.wav"), Contents(dir / "b.wav"));
    // A PEAK chunk would carry the time of writing.
    EXPECT_EQ(Contents(dir / "a.wav").find("PEAK"), std::string::npos);
}
