// The log lines that a test caused, without time and process: "11 102.1511 text".
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "er/er.h"

class LogLines {
public:
    explicit LogLines(int level = 11) {
        er_Reset();
        er_SetLevel(level);
        er_SetSink([this](std::string_view line) {
            while (line.ends_with('\n')) line.remove_suffix(1);
            const std::size_t process = line.find("] ");
            lines_.emplace_back(process == line.npos ? line : line.substr(process + 2));
        });
    }
    ~LogLines() { er_Reset(); }
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    const std::vector<std::string>& all() const { return lines_; }
    std::size_t count(std::string_view start) const {
        std::size_t found = 0;
        for (const std::string& line : lines_) found += line.starts_with(start) ? 1 : 0;
        return found;
    }
    std::string first(std::string_view start) const {
        for (const std::string& line : lines_)
            if (line.starts_with(start)) return line;
        return {};
    }

private:
    std::vector<std::string> lines_;
};
