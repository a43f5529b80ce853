#include "render/wavwriter.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Norvell::Render {

namespace {

int FormatBits(SampleFormat format) {
    switch (format) {
    case SampleFormat::Pcm16: return SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    case SampleFormat::Pcm24: return SF_FORMAT_WAV | SF_FORMAT_PCM_24;
    case SampleFormat::Float: return SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    }
    return 0;
}

} // namespace

WavWriter::WavWriter(const std::string& path, uint32_t sampleRate, SampleFormat format)
    : path_(path) {
    if (sampleRate == 0 || sampleRate > 0x7FFFFFFF)
        throw OutputError("invalid sample rate " + std::to_string(sampleRate));
    std::string pattern = path + ".partXXXXXX";
    const int fd = mkstemp(pattern.data());
    if (fd < 0) throw OutputError("cannot write '" + path + "': " + std::strerror(errno));
    tempPath_ = pattern;
    // mkstemp creates the file for its owner only; give it the usual permissions.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);

    SF_INFO info{};
    info.samplerate = int(sampleRate);
    info.channels = 2;
    info.format = FormatBits(format);
    file_ = sf_open_fd(fd, SFM_WRITE, &info, SF_TRUE);
    if (!file_) {
        const std::string why = sf_strerror(nullptr);
        close(fd);
        unlink(tempPath_.c_str());
        throw OutputError("cannot write '" + path + "': " + why);
    }
    // No PEAK chunk: it holds a time stamp, and renders must be byte-reproducible.
    sf_command(file_, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    sf_command(file_, SFC_SET_CLIPPING, nullptr, SF_TRUE);
    sf_set_string(file_, SF_STR_SOFTWARE, "vantor-render");
}

WavWriter::~WavWriter() {
    Discard();
}

void WavWriter::Discard() {
    if (file_) {
        sf_close(file_);
        file_ = nullptr;
    }
    if (!tempPath_.empty()) {
        unlink(tempPath_.c_str());
        tempPath_.clear();
    }
}

void WavWriter::Write(const float* left, const float* right, size_t frames) {
    if (!file_) throw OutputError("cannot write '" + path_ + "': the file is closed");
    interleaved_.resize(frames * 2);
    for (size_t i = 0; i < frames; ++i) {
        interleaved_[2 * i] = left[i];
        interleaved_[2 * i + 1] = right[i];
    }
    if (sf_writef_float(file_, interleaved_.data(), sf_count_t(frames)) != sf_count_t(frames))
        throw OutputError("cannot write '" + path_ + "': " + sf_strerror(file_));
}

void WavWriter::Commit() {
    if (!file_) throw OutputError("cannot write '" + path_ + "': the file is closed");
    const int closed = sf_close(file_);
    file_ = nullptr;
    if (closed != 0) {
        const std::string why = sf_error_number(closed);
        Discard();
        throw OutputError("cannot write '" + path_ + "': " + why);
    }
    if (std::rename(tempPath_.c_str(), path_.c_str()) != 0) {
        const std::string why = std::strerror(errno);
        Discard();
        throw OutputError("cannot write '" + path_ + "': " + why);
    }
    tempPath_.clear();
}

} // namespace Norvell::Render
