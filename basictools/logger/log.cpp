#include "basictools/logger/log.h"

#include "basictools/platform.h"
#include "basictools/resources.h"
#include "basictools/timing.h"
#include "basictools/xml_tools/xml_tools.h"

#include <ctime>
#include <iomanip>
#include <iostream>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Norvell {

namespace {

const char* const kLevelNames[] = {"debug", "info",   "notice", "warning",
                                   "error", "except", "assert"};
constexpr int kLevelCount = 7;
constexpr int kDefaultThreshold = LOG_WARNING;
const CSingletonRelease<CLog> releaseAtUnload;

std::vector<std::string> SplitWords(const std::string& line) {
    std::vector<std::string> words;
    size_t pos = 0;
    while ((pos = line.find_first_not_of(" \t", pos)) != std::string::npos) {
        const size_t end = line.find_first_of(" \t", pos);
        words.push_back(line.substr(pos, end - pos));
        pos = end;
    }
    return words;
}

int LevelIndex(const std::string& name) {
    for (int level = 0; level < kLevelCount; ++level)
        if (name == kLevelNames[level]) return level;
    return -1;
}

} // namespace

CLog::CLog() : creationTime(CTiming::Now100ns()) {}

CLog::~CLog() {
    // Nothing else writes into the file once the instance is gone.
    if (logFile.is_open()) logFile.close();
}

void CLog::Configure(const std::string& confPath, const std::string& outputOverride) {
    std::lock_guard<std::mutex> guard(lock);
    categories.clear();

    if (confPath.empty()) {
        std::cout << "#### Log conf file empty.\n";
    } else {
        std::ifstream probe(Platform::ToNativePath(confPath));
        if (!probe.is_open()) {
            std::cout << "Conf file " << Platform::ToNativePath(confPath) << " not found.\n";
        } else {
            probe.close();
            ParseConfFile(confPath);
        }
    }
    std::cout.flush();

    if (!outputOverride.empty()) outputFile = outputOverride;
    if (!outputFile.empty()) {
        if (outputFile.find_first_of("/\\") == std::string::npos) {
            std::string desktop;
            if (!GetKnownFolderPath(KnownFolder::Desktop, desktop)) desktop.clear();
            outputFile.insert(0, desktop.append("/"));
        }
        if (extendedFilename) outputFile.append("_").append(CreationStamp(creationTime));
    }

    // A second configuration (another processor) keeps writing into the open file.
    if (!logFile.is_open()) logFile.open(Platform::ToNativePath(outputFile), std::ios::trunc);
    if (logFile.is_open()) {
        logFile << "#### Stdout redirected to file " << outputFile << "\n";
        logFile.flush();
    }
}

void CLog::ParseConfFile(const std::string& confPath) {
    std::ifstream in(Platform::ToNativePath(confPath));
    int debugAll = 0;
    std::string line;
    while (std::getline(in, line)) {
        std::erase_if(line, [](char c) { return c == '\n' || c == '\r'; });
        if (line.find_first_not_of(" \t") == std::string::npos) continue;
        if (line.compare(0, 2, "//") == 0) continue;

        const std::vector<std::string> words = SplitWords(line);
        if (words.size() != 2) {
            std::cout << "## WARNING : this line is ignored as not well-formed " << line << "\n";
            continue;
        }
        const std::string& key = words[0];
        const std::string& value = words[1];
        if (key == "OutputFile") {
            std::cout << "## OutputFile : " << value << "\n";
            outputFile = value;
        } else if (key == "ExtendedFilename") {
            std::cout << "## ExtendedFilename : " << value << "\n";
            extendedFilename = XmlTools::LeadingInteger(value) > 0;
        } else if (key == "DebugAllFlag") {
            std::cout << "## DebugAllFlag : " << value << "\n";
            try {
                debugAll = XmlTools::StoI(value);
            } catch (const std::exception&) {
                debugAll = 0;
            }
        } else {
            int threshold = 0;
            if (debugAll <= 0) {
                threshold = LevelIndex(value);
                if (threshold < 0) {
                    std::cout << "Log level " << value << " not existing.\n";
                    threshold = LOG_ERROR;
                }
            }
            categories.emplace(key, threshold); // the first line for a category wins
        }
    }
}

bool CLog::IsEnabled(const std::string& category, int level) {
    std::lock_guard<std::mutex> guard(lock);
    const auto found = categories.find(category);
    if (found != categories.end()) return level >= found->second;
    categories.emplace(category, kDefaultThreshold);
    return level >= kDefaultThreshold;
}

void CLog::Log(const char* category, int level, const std::ostringstream& message) {
    std::lock_guard<std::mutex> guard(lock);
    if (!logFile.is_open() && !lineSink) return;
    const std::string line = FormatLine(category, level, message.str());
    if (logFile.is_open()) {
        logFile << line;
        logFile.flush();
    }
    if (lineSink) lineSink(line);
}

void CLog::SetLineSink(LineSink sink) {
    std::lock_guard<std::mutex> guard(lock);
    lineSink = std::move(sink);
}

void CLog::SetThreshold(const std::string& category, int level) {
    std::lock_guard<std::mutex> guard(lock);
    categories[category] = level;
}

void CLog::Print(const std::string& text) {
    std::lock_guard<std::mutex> guard(lock);
    if (logFile.is_open()) {
        logFile << text;
        logFile.flush();
    } else {
        std::cout << text;
        std::cout.flush();
    }
}

std::string CLog::FormatLine(const char* category, int level, const std::string& text) const {
    const int64_t elapsedMs = (CTiming::Now100ns() - creationTime) / 10000;
    const std::string levelName =
        level >= 0 && level < kLevelCount ? kLevelNames[level] : std::to_string(level);
    std::ostringstream line;
    line << "[LOG] " << std::left << std::setw(6)
         << static_cast<int32_t>(static_cast<uint32_t>(elapsedMs)) << " | " << std::setw(5)
         << Platform::ThreadId() << " | " << std::setw(15) << (category != nullptr ? category : "")
         << " | " << std::setw(6) << levelName << " | " << text << "\n";
    return line.str();
}

std::string CLog::CreationStamp(int64_t time100ns) {
    // From the ctime text "Wed Jan  2 02:03:55 1980\n" to "1980_Jan__2_02-03-55".
    const std::time_t seconds = static_cast<std::time_t>(time100ns / 10000000);
    char buffer[64];
    if (ctime_r(&seconds, buffer) == nullptr) return {};
    std::string text = buffer;
    std::erase(text, '\n');
    for (char& c : text) {
        if (c == ' ') c = '_';
        if (c == ':') c = '-';
    }
    const size_t yearSep = text.rfind('_');
    if (yearSep == std::string::npos) return text;
    const std::string year = text.substr(yearSep + 1);
    text.erase(yearSep);
    const size_t weekdaySep = text.find('_');
    return year + "_" + (weekdaySep == std::string::npos ? text : text.substr(weekdaySep + 1));
}

} // namespace Norvell
