#include "test_support.h"

#include <filesystem>

namespace VantorTest {

std::string EngineFile(const std::string& name) {
    return std::string(VANTOR_ENGINE_DIR) + "/" + name;
}

std::string TestFolder() {
    return std::filesystem::canonical(VANTOR_TEST_DIR).string() + "/";
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
