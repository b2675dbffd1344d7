// Steering files: what text in a set is turned into, and which parts go through a converter or are thrown away. TOML:
//
//   [[target]]                    # what text in a set is turned into
//   from = "ISO8859_15"           # a set, or "*" for any
//   type = 1167                   # file type code; 0 or absent: any
//   to = "UTF8"                   # the set that was asked for: text in it stays in it
//
//   [[convert]]                   # a whole-file conversion
//   type = 2133
//   from = "*"
//   to_type = 1167
//   to = "UTF8"
//   converter = "html2txt"        # at most 8 characters
//
//   [[discard]]                   # such parts are thrown away
//   type = 9999
//   from = "*"
//
//   [converter.html2txt]
//   command = ["/usr/bin/w3m", "-T", "text/html", "-dump"]   # reads stdin, writes stdout
//   timeout = 60                  # seconds, 1 to 3600; absent: 60
//
// The first row that matches wins. Sets may be written by any name that ccs knows; a set that it does not know matches
// its own name. Tables and keys that have no meaning here are logged and passed over; whatever else is wrong makes the
// whole file unusable.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

inline constexpr std::size_t kConverterNameLimit = 8;

struct SteeringMatch {
    std::string from;       // "*": any set
    std::int32_t type = 0;  // 0: any type
    bool covers(std::int32_t asked_type, std::string_view asked_set) const;
};
struct TargetRow {
    SteeringMatch match;
    std::string to;
};
struct ConvertRow {
    SteeringMatch match;
    std::int32_t to_type = 0;
    std::string to;
    std::string converter;
};
struct ConverterCommand {
    std::vector<std::string> command;  // program and arguments
    std::chrono::seconds timeout{60};
};

struct Steering {
    std::vector<TargetRow> targets;
    std::vector<ConvertRow> converts;
    std::vector<SteeringMatch> discards;
    std::map<std::string, ConverterCommand, std::less<>> converters;
};

// Why a steering file cannot be used: the line, and the key or the parser's complaint.
struct SteeringError {
    unsigned line = 0;
    std::string what;
};

// Reads the text of a steering file. `error` is set when nothing is returned; `warnings` gets what was passed over.
std::optional<Steering> parse_steering(std::string_view text, SteeringError& error,
                                       std::vector<SteeringError>& warnings);
