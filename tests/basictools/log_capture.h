#pragma once
// A fresh logger for one test that keeps the category, level and text of every line.
#include "basictools/logger/log.h"

#include <array>
#include <vector>

struct LogCapture {
    explicit LogCapture(std::initializer_list<std::pair<const char*, int>> thresholds = {}) {
        Norvell::CLog::DestroyInstance();
        for (const auto& [category, level] : thresholds)
            Norvell::CLog::GetInstance()->SetThreshold(category, level);
        // "[LOG] ms | thread | category | level | text\n", fields padded with blanks.
        Norvell::CLog::GetInstance()->SetLineSink([this](const std::string& line) {
            std::string fields[4];
            size_t pos = 0;
            for (std::string& field : fields) {
                const size_t bar = line.find(" | ", pos);
                field = line.substr(pos, line.find_last_not_of(' ', bar - 1) + 1 - pos);
                pos = bar + 3;
            }
            lines.push_back({fields[2], fields[3], line.substr(pos, line.size() - pos - 1)});
        });
    }
    ~LogCapture() { Norvell::CLog::DestroyInstance(); }
    // Texts of the lines of a category at a level ("" matches any), in order.
    std::vector<std::string> Texts(const std::string& category, const std::string& level = "") {
        std::vector<std::string> out;
        for (const auto& [cat, lvl, text] : lines)
            if ((category.empty() || cat == category) && (level.empty() || lvl == level))
                out.push_back(text);
        return out;
    }
    std::vector<std::array<std::string, 3>> lines; // category, level, text
};
