// Record files of any kind (transfer files, distribution-list files, message files, queue entries) as foreign bytes:
// read through a window, never held whole, and never trusted. A record that claims more than its file holds is a
// failure that names file and offset; nothing is allocated for it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "os/os.h"

namespace morvane {

// Bytes at random places of a file, or of memory.
class ByteFile {
public:
    // Opens a regular file; a directory, a device or a missing file raises. `path` may begin with "~/".
    static ByteFile open(const std::string& path);
    // `memory` must live as long as the object.
    static ByteFile over(std::string_view memory, std::string name);

    const std::string& name() const { return name_; }
    std::uint64_t size() const { return size_; }
    // Up to `count` bytes from `at`, fewer only at the end. Good until the next call.
    std::string_view bytes(std::uint64_t at, std::size_t count);

private:
    std::string name_;
    std::uint64_t size_ = 0;
    os_Fd fd_;
    std::string_view memory_;
    std::string window_;
    std::uint64_t window_at_ = 0;
};

// Where one record stands. A wrapped record (34500) is seen through: `start`, `length` and `type` are those of
// the record that it holds, `wraps` says how many wrappers were passed.
struct RecordPlace {
    std::uint64_t position = 0;  // in the file, of the outermost record
    std::uint32_t size = 0;      // of the outermost record
    std::uint64_t start = 0;
    std::uint32_t length = 0;
    std::int32_t type = 0;
    int wraps = 0;
};

inline constexpr std::uint64_t kMostRecords = 4'000'000;  // of a file, read in one go: a reader's memory is bounded
inline constexpr int kMostWraps = 16;                     // deeper ones stay a record of type 34500
inline constexpr std::size_t kHeadLimit = std::size_t{1} << 20;  // of a record's bytes that are looked at

class RecordWalker {
public:
    explicit RecordWalker(ByteFile& file) : file_(file) {}
    // The next record; false at the end. Raises RecordFailure.
    bool next(RecordPlace& place);
    void go_to(std::uint64_t position) {
        next_ = position;
        count_ = 0;
    }
    // The first bytes of the (unwrapped) record, its 16-byte header included, at most `limit`. Good until the file
    // is read again.
    std::string_view head(const RecordPlace& place, std::size_t limit = kHeadLimit);
    ByteFile& file() { return file_; }

private:
    ByteFile& file_;
    std::uint64_t next_ = 0;
    std::uint64_t count_ = 0;  // records read since the last go_to
};

// The shape of a file: one short entry a record, so that a reader knows what follows a record before printing it.
struct RecordStep {
    std::uint64_t position = 0;
    std::int32_t type = 0;
    std::uint32_t depth : 30 = 0;  // open packages and alternative groups around it
    std::uint32_t last : 1 = 1;    // nothing else follows in the same package or group
    std::uint32_t parent : 1 = 0;  // something stands in it
};

struct RecordOutline {
    std::vector<RecordStep> steps;    // ends of packages and groups stand at the depth of their starts
    std::vector<std::string> faults;  // ends without start, starts without end; at most kMostFaults
    std::string failure;              // where and why the records end before the file does
    static constexpr std::size_t kMostFaults = 20;
};
RecordOutline outline(ByteFile& file);  // does not raise RecordFailure: what stands before the damage is of use

bool opens(std::int32_t type);   // start of a package or of a group of alternatives
bool closes(std::int32_t type);  // the end of one

}  // namespace morvane
