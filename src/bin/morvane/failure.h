// What ends a command: told in one line on standard error, exit status 1.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "er/er.h"

namespace morvane {

class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// "file: offset N: what": a record file that is not as it must be.
class RecordFailure : public Failure {
public:
    RecordFailure(const std::string& file, std::uint64_t offset, const std::string& what)
        : Failure(file + ": offset " + std::to_string(offset) + ": " + what), offset_(offset) {}
    std::uint64_t offset() const { return offset_; }

private:
    std::uint64_t offset_;
};

// What an escape of a service says to a person: the thing that failed, and why.
std::string told(const er_Escape& escape);

}  // namespace morvane
