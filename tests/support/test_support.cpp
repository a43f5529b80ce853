#include "test_support.h"

namespace VantorTest {

std::string SourcePath(const std::string& relative) {
    return std::string(VANTOR_SOURCE_DIR) + "/" + relative;
}

} // namespace VantorTest

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace VantorTest {

ScopedLogCapture::ScopedLogCapture() {
    char pattern[] = "/tmp/vantor-log-XXXXXX";
    folder = ::mkdtemp(pattern);
    previous = std::filesystem::current_path().string();
    std::ofstream conf(folder + "/log.conf");
    conf << "OutputFile " << folder << "/engine.log\n"
         << "ExtendedFilename 0\n"
         << "audio_engine debug\n"
         << "engine debug\n"
         << "engine_description debug\n"
         << "description debug\n"
         << "timing debug\n";
    conf.close();
    std::filesystem::current_path(folder);
}

ScopedLogCapture::~ScopedLogCapture() {
    std::filesystem::current_path(previous);
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

std::string ScopedLogCapture::Text() const {
    std::ifstream in(folder + "/engine.log");
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

} // namespace VantorTest
