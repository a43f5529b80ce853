// WAV output: formats, the temporary file, and never a partial file under the target name.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sndfile.h>
#include <unistd.h>

#include "render/wavwriter.h"

using namespace Norvell::Render;
namespace fs = std::filesystem;

static std::string Contents(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST(WavWriter, WritesEachFormatAndReplacesTheTargetOnlyOnCommit) {
    const fs::path dir = fs::temp_directory_path() / ("vantor_wav_" + std::to_string(getpid()));
    fs::remove_all(dir);
    fs::create_directories(dir);
    const std::tuple<SampleFormat, int, int> cases[] = {
        {SampleFormat::Pcm16, SF_FORMAT_PCM_16, 44100},
        {SampleFormat::Pcm24, SF_FORMAT_PCM_24, 48000},
        {SampleFormat::Float, SF_FORMAT_FLOAT, 22050}};
    std::vector<float> left(1234), right(1234); // left rises from -0.5, right is its inverse
    for (size_t i = 0; i < left.size(); ++i) right[i] = -(left[i] = float(i) / 1234 - 0.5f);
    for (const auto& [format, subtype, rate] : cases) {
        const fs::path path = dir / (std::to_string(subtype) + ".wav");
        std::ofstream(path) << "previous take";
        for (bool commit : {false, true}) { // abandoned, then committed
            WavWriter writer(path.string(), rate, format);
            writer.Write(left.data(), right.data(), 1000);
            writer.Write(left.data() + 1000, right.data() + 1000, 234);
            EXPECT_EQ(fs::path(writer.TemporaryPath()).parent_path(), dir); // same file system
            EXPECT_EQ(Contents(path), "previous take");
            if (commit) writer.Commit();
        }
        SF_INFO info{};
        SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(info.frames, 1234);
        EXPECT_EQ(info.samplerate, rate);
        EXPECT_EQ(info.channels, 2);
        EXPECT_EQ(info.format, SF_FORMAT_WAV | subtype);
        float frame[2]; // the last frame, from the second Write
        sf_seek(file, 1233, SEEK_SET);
        sf_readf_float(file, frame, 1);
        EXPECT_NEAR(frame[0], left[1233], 1e-4f);
        EXPECT_NEAR(frame[1], -left[1233], 1e-4f);
        sf_close(file);
        // A PEAK chunk would carry the time of writing: the same audio must give the same bytes.
        EXPECT_EQ(Contents(path).find("PEAK"), std::string::npos);
    }
    // Unwritable targets fail before rendering.
    EXPECT_THROW(WavWriter((dir / "missing" / "x.wav").string(), 44100, SampleFormat::Pcm16),
                 OutputError);
    EXPECT_THROW(WavWriter((dir / "x.wav").string(), 0, SampleFormat::Pcm16), OutputError);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), {}), 3); // no temporary files left
    fs::remove_all(dir);
}
