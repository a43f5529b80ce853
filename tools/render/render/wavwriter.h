#pragma once
// Stereo WAV output through libsndfile. The audio goes to a temporary file next
// to the target, renamed over it only by Commit, so an interrupted or failed
// render never leaves a partial file under the target's name.
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "render/renderloop.h"

struct sf_private_tag;

namespace Norvell::Render {

class OutputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

enum class SampleFormat { Pcm16, Pcm24, Float };

class WavWriter final : public AudioSink {
public:
    // Creates the temporary file. Throws OutputError (unwritable folder, bad rate).
    WavWriter(const std::string& path, uint32_t sampleRate, SampleFormat format);
    // Without Commit the temporary file is removed and the target left alone.
    ~WavWriter() override;
    WavWriter(const WavWriter&) = delete;
    WavWriter& operator=(const WavWriter&) = delete;

    void Write(const float* left, const float* right, size_t frames) override;
    // Closes the file and renames it to the target. Throws OutputError.
    void Commit();

    const std::string& TemporaryPath() const { return tempPath_; }

private:
    std::string path_;
    std::string tempPath_;
    sf_private_tag* file_ = nullptr;
    std::vector<float> interleaved_;

    void Discard();
};

} // namespace Norvell::Render
