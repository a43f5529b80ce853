#pragma once
// Process-wide logger: per-category thresholds read from log.conf, one line
// format, output into a log file only (never into the host's own stdout).
#include "basictools/singleton.h"

#include <cstdint>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <sstream>
#include <string>

namespace Norvell {

enum LogLevel : int {
    LOG_DEBUG = 0,
    LOG_INFO = 1,
    LOG_NOTICE = 2,
    LOG_WARNING = 3,
    LOG_ERROR = 4,
    LOG_EXCEPT = 5,
    LOG_ASSERT = 6,
};

class CLog : public CSingleton<CLog> {
    friend class CSingleton<CLog>;

public:
    // The process-wide instance with the singleton's lock held until the end
    // of the full expression, so another thread cannot destroy the logger
    // mid-call: CLog::Locked()->Print("...").
    class Locked {
    public:
        CLog* operator->() const { return GetInstance(); }

    private:
        std::lock_guard<std::recursive_mutex> guard{Mutex()};
    };

    void Configure(const std::string& confPath, const std::string& outputOverride);
    bool IsEnabled(const std::string& category, int level);
    void Log(const char* category, int level, const std::ostringstream& message);

    // Everything else the engine prints goes here: into the log file while one
    // is open, otherwise to the process's standard output.
    void Print(const std::string& text);

    // Formatted line for a message (with its terminating "\n").
    std::string FormatLine(const char* category, int level, const std::string& text) const;

    // Creation stamp as used in an extended log file name.
    static std::string CreationStamp(int64_t time100ns);

    // Receives every formatted line, whether a log file is open or not, so
    // that tools and tests can show or check the log; empty to remove.
    using LineSink = std::function<void(const std::string& line)>;
    void SetLineSink(LineSink sink);
    // Sets a category's threshold as a log.conf line would (the latest call wins).
    void SetThreshold(const std::string& category, int level);

    // Read access for tests and tools.
    const std::map<std::string, int>& Categories() const { return categories; }
    const std::string& OutputFile() const { return outputFile; }
    bool IsFileOpen() const { return logFile.is_open(); }

private:
    CLog();
    ~CLog();
    void ParseConfFile(const std::string& confPath);

    std::map<std::string, int> categories;
    std::string outputFile;
    bool extendedFilename = true;
    std::ofstream logFile;
    int64_t creationTime;
    LineSink lineSink;
    std::mutex lock;
};

} // namespace Norvell

// Ask first, then build the text: a disabled line costs one map lookup. The
// singleton's lock is held throughout, so another thread destroying the logger
// (any processor's destructor does) waits until the line is written.
#define VANTOR_LOG(category, level, expr)                                                          \
    do {                                                                                           \
        const ::Norvell::CLog::Locked vantorLog_;                                                  \
        if (vantorLog_->IsEnabled((category), (level))) {                                          \
            std::ostringstream vantorLogText_;                                                     \
            vantorLogText_ << expr;                                                                \
            vantorLog_->Log((category), (level), vantorLogText_);                                  \
        }                                                                                          \
    } while (0)
