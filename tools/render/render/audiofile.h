#pragma once
// Stereo audio file output through libsndfile: WAV, AIFF, FLAC, Ogg Vorbis, Opus
// or headerless samples. The audio goes to a temporary file, which Commit renames
// over the target or copies to a stream, so an interrupted or failed render never
// leaves a partial file under the target's name nor half a file on a pipe.
#include <cstdint>
#include <optional>
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

enum class FileType { Wav, Aiff, Flac, Vorbis, Opus, Raw };
enum class SampleFormat { Pcm16, Pcm24, Float };

struct OutputFormat {
    FileType type = FileType::Wav;
    SampleFormat sample = SampleFormat::Pcm24; // unused by the lossy types
};

// The --type names: wav, aiff, flac, ogg, opus, raw.
std::optional<FileType> FileTypeNamed(const std::string& name);
// The type an extension stands for (".flac", ".OGG" ...); nothing for unknown ones.
std::optional<FileType> FileTypeOfPath(const std::string& path);
const char* FileTypeName(FileType type);
const char* FileTypeExtension(FileType type); // with the dot
bool IsLossy(FileType type);
// "24-bit FLAC", "Ogg Vorbis" ... for the summary.
std::string DescribeFormat(const OutputFormat& format);
// Throws OutputError when the linked libsndfile cannot write the format at this rate.
void CheckWritable(const OutputFormat& format, uint32_t sampleRate);

class AudioFileWriter final : public AudioSink {
public:
    // Writes to a temporary file next to path. Throws OutputError (unwritable
    // folder, a format or rate that cannot be written).
    AudioFileWriter(const std::string& path, uint32_t sampleRate, OutputFormat format);
    // Writes to an anonymous temporary file; Commit copies it to the descriptor.
    AudioFileWriter(int streamFd, uint32_t sampleRate, OutputFormat format);
    // Without Commit the temporary file is removed and the target left alone.
    ~AudioFileWriter() override;
    AudioFileWriter(const AudioFileWriter&) = delete;
    AudioFileWriter& operator=(const AudioFileWriter&) = delete;

    void Write(const float* left, const float* right, size_t frames) override;
    // Closes the file and renames it to the target (or copies it to the stream).
    // Throws OutputError.
    void Commit();

    const std::string& TemporaryPath() const { return tempPath_; }

private:
    std::string path_; // for messages; "standard output" for a stream
    std::string tempPath_;
    int fd_ = -1;       // the temporary file
    int streamFd_ = -1; // the stream Commit copies to, or -1
    sf_private_tag* file_ = nullptr;
    std::vector<float> interleaved_;

    void Open(uint32_t sampleRate, OutputFormat format);
    void CopyToStream();
    void Discard();
};

} // namespace Norvell::Render
