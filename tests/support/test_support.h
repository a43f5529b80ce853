#pragma once
// Shared helpers for engine tests.
#include <string>

namespace VantorTest {

// Absolute path of a file beside the built engine (its description, log.conf).
std::string EngineFile(const std::string& name);
// Folder of the test programs, ending in '/'; the engine's data files lie there too.
std::string TestFolder();

} // namespace VantorTest

namespace VantorTest {

// Makes every processor constructed while it lives log everything into a file
// of its own: writes a log.conf into a fresh temporary folder and makes that
// folder the current directory (the resource search tries the bare name
// first). Text() reads the log once the processors are gone.
class ScopedLogCapture {
public:
    ScopedLogCapture();
    ~ScopedLogCapture();
    ScopedLogCapture(const ScopedLogCapture&) = delete;
    ScopedLogCapture& operator=(const ScopedLogCapture&) = delete;

    std::string Text() const;
    const std::string& Folder() const { return folder; }

private:
    std::string folder;
    std::string previous;
};

} // namespace VantorTest
