#include "render/audiofile.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Norvell::Render {

namespace {

struct TypeInfo {
    FileType type;
    const char* name;
    const char* extension;
    const char* description;
};

constexpr std::array<TypeInfo, 6> kTypes{{
    {FileType::Wav, "wav", ".wav", "WAV"},
    {FileType::Aiff, "aiff", ".aiff", "AIFF"},
    {FileType::Flac, "flac", ".flac", "FLAC"},
    {FileType::Vorbis, "ogg", ".ogg", "Ogg Vorbis"},
    {FileType::Opus, "opus", ".opus", "Opus"},
    {FileType::Raw, "raw", ".raw", "raw little-endian"},
}};

const TypeInfo& Info(FileType type) {
    return *std::find_if(kTypes.begin(), kTypes.end(),
                         [type](const TypeInfo& t) { return t.type == type; });
}

int SampleBits(SampleFormat sample) {
    switch (sample) {
    case SampleFormat::Pcm16: return SF_FORMAT_PCM_16;
    case SampleFormat::Pcm24: return SF_FORMAT_PCM_24;
    case SampleFormat::Float: return SF_FORMAT_FLOAT;
    }
    return 0;
}

int FormatBits(const OutputFormat& format) {
    const int sample = SampleBits(format.sample);
    switch (format.type) {
    case FileType::Wav: return SF_FORMAT_WAV | sample;
    case FileType::Aiff: return SF_FORMAT_AIFF | sample;
    case FileType::Flac: return SF_FORMAT_FLAC | sample;
    case FileType::Vorbis: return SF_FORMAT_OGG | SF_FORMAT_VORBIS;
    case FileType::Opus: return SF_FORMAT_OGG | SF_FORMAT_OPUS;
    case FileType::Raw: return SF_FORMAT_RAW | SF_ENDIAN_LITTLE | sample;
    }
    return 0;
}

std::string Lower(std::string text) {
    for (char& c : text) c = char(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

} // namespace

std::optional<FileType> FileTypeNamed(const std::string& name) {
    for (const auto& t : kTypes)
        if (Lower(name) == t.name) return t.type;
    return std::nullopt;
}

std::optional<FileType> FileTypeOfPath(const std::string& path) {
    const std::string extension = Lower(std::filesystem::path(path).extension().string());
    if (extension == ".aif") return FileType::Aiff;
    if (extension == ".oga") return FileType::Vorbis;
    if (extension == ".pcm") return FileType::Raw;
    for (const auto& t : kTypes)
        if (extension == t.extension) return t.type;
    return std::nullopt;
}

const char* FileTypeName(FileType type) {
    return Info(type).name;
}

const char* FileTypeExtension(FileType type) {
    return Info(type).extension;
}

bool IsLossy(FileType type) {
    return type == FileType::Vorbis || type == FileType::Opus;
}

std::string DescribeFormat(const OutputFormat& format) {
    const std::string type = Info(format.type).description;
    if (IsLossy(format.type)) return type;
    switch (format.sample) {
    case SampleFormat::Pcm16: return "16-bit " + type;
    case SampleFormat::Pcm24: return "24-bit " + type;
    case SampleFormat::Float: return "32-bit float " + type;
    }
    return type;
}

void CheckWritable(const OutputFormat& format, uint32_t sampleRate) {
    const std::string what = DescribeFormat(format);
    if (format.type == FileType::Flac && format.sample == SampleFormat::Float)
        throw OutputError("FLAC holds 16 or 24-bit samples, not float; choose --format 16 or 24");
    if (format.type == FileType::Opus) {
        constexpr uint32_t rates[] = {8000, 12000, 16000, 24000, 48000};
        if (std::find(std::begin(rates), std::end(rates), sampleRate) == std::end(rates))
            throw OutputError("Opus is written at 8000, 12000, 16000, 24000 or 48000 Hz, not " +
                              std::to_string(sampleRate) + " Hz; choose one with --rate");
    }
    SF_INFO info{};
    info.samplerate = int(sampleRate);
    info.channels = 2;
    info.format = FormatBits(format);
    if (!sf_format_check(&info))
        throw OutputError(std::string("this build of libsndfile (") + sf_version_string() +
                          ") cannot write " + what + " at " + std::to_string(sampleRate) + " Hz");
}

AudioFileWriter::AudioFileWriter(const std::string& path, uint32_t sampleRate, OutputFormat format)
    : path_(path) {
    CheckWritable(format, sampleRate);
    std::string pattern = path + ".partXXXXXX";
    fd_ = mkstemp(pattern.data());
    if (fd_ < 0) throw OutputError("cannot write '" + path + "': " + std::strerror(errno));
    tempPath_ = pattern;
    // mkstemp creates the file for its owner only; give it the usual permissions.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd_, 0666 & ~mask);
    Open(sampleRate, format);
}

AudioFileWriter::AudioFileWriter(int streamFd, uint32_t sampleRate, OutputFormat format)
    : path_("standard output"), streamFd_(streamFd) {
    CheckWritable(format, sampleRate);
    std::string pattern = (std::filesystem::temp_directory_path() / "vantor-XXXXXX").string();
    fd_ = mkstemp(pattern.data());
    if (fd_ < 0)
        throw OutputError("cannot create a temporary file in " + pattern + ": " +
                          std::strerror(errno));
    unlink(pattern.c_str()); // anonymous: gone with the descriptor, whatever happens
    Open(sampleRate, format);
}

void AudioFileWriter::Open(uint32_t sampleRate, OutputFormat format) {
    SF_INFO info{};
    info.samplerate = int(sampleRate);
    info.channels = 2;
    info.format = FormatBits(format);
    file_ = sf_open_fd(fd_, SFM_WRITE, &info, SF_FALSE);
    if (!file_) {
        const std::string why = sf_strerror(nullptr);
        Discard();
        throw OutputError("cannot write '" + path_ + "': " + why);
    }
    // No PEAK chunk: it holds a time stamp, and renders must be byte-reproducible.
    sf_command(file_, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    sf_command(file_, SFC_SET_CLIPPING, nullptr, SF_TRUE);
    if (format.type != FileType::Raw) sf_set_string(file_, SF_STR_SOFTWARE, "vantor-render");
}

AudioFileWriter::~AudioFileWriter() {
    Discard();
}

void AudioFileWriter::Discard() {
    if (file_) {
        sf_close(file_);
        file_ = nullptr;
    }
    if (fd_ >= 0) {
        close(fd_);
        fd_ = -1;
    }
    if (!tempPath_.empty()) {
        unlink(tempPath_.c_str());
        tempPath_.clear();
    }
}

void AudioFileWriter::Write(const float* left, const float* right, size_t frames) {
    if (!file_) throw OutputError("cannot write '" + path_ + "': the file is closed");
    interleaved_.resize(frames * 2);
    for (size_t i = 0; i < frames; ++i) {
        interleaved_[2 * i] = left[i];
        interleaved_[2 * i + 1] = right[i];
    }
    if (sf_writef_float(file_, interleaved_.data(), sf_count_t(frames)) != sf_count_t(frames))
        throw OutputError("cannot write '" + path_ + "': " + sf_strerror(file_));
}

void AudioFileWriter::CopyToStream() {
    if (lseek(fd_, 0, SEEK_SET) != 0)
        throw OutputError(std::string("cannot reread the temporary file: ") + std::strerror(errno));
    std::vector<char> buffer(1 << 16);
    for (;;) {
        const ssize_t n = read(fd_, buffer.data(), buffer.size());
        if (n == 0) return;
        if (n < 0) {
            if (errno == EINTR) continue;
            throw OutputError(std::string("cannot reread the temporary file: ") +
                              std::strerror(errno));
        }
        for (ssize_t done = 0; done < n;) {
            const ssize_t w = write(streamFd_, buffer.data() + done, size_t(n - done));
            if (w < 0 && errno == EINTR) continue;
            if (w <= 0) throw OutputError("cannot write to " + path_ + ": " + std::strerror(errno));
            done += w;
        }
    }
}

void AudioFileWriter::Commit() {
    if (!file_) throw OutputError("cannot write '" + path_ + "': the file is closed");
    const int closed = sf_close(file_);
    file_ = nullptr;
    try {
        if (closed != 0)
            throw OutputError("cannot write '" + path_ + "': " + sf_error_number(closed));
        if (streamFd_ >= 0) {
            CopyToStream();
        } else {
            if (std::rename(tempPath_.c_str(), path_.c_str()) != 0)
                throw OutputError("cannot write '" + path_ + "': " + std::strerror(errno));
            tempPath_.clear();
        }
    } catch (...) {
        Discard();
        throw;
    }
    Discard();
}

} // namespace Norvell::Render
