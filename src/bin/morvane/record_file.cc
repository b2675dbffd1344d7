// Record files as foreign bytes: see record_file.h.
#include "morvane/record_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "er/er.h"
#include "morvane/failure.h"
#include "tf/record.h"

namespace morvane {
namespace {

constexpr std::size_t kReadAhead = std::size_t{64} << 10;

std::uint32_t number_at(std::string_view bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

}  // namespace

ByteFile ByteFile::open(const std::string& path) {
    ByteFile file;
    file.name_ = os_HomePath(path);
    file.fd_ = os_open(file.name_, O_RDONLY | O_NONBLOCK);  // a named pipe must not keep us waiting
    struct stat info {};
    if (::fstat(file.fd_.get(), &info) != 0) er_SystemEscape(errno, file.name_);
    if (S_ISDIR(info.st_mode)) er_SystemEscape(EISDIR, file.name_);
    if (!S_ISREG(info.st_mode)) throw Failure(file.name_ + ": not a regular file");
    file.size_ = static_cast<std::uint64_t>(info.st_size);
    return file;
}

ByteFile ByteFile::over(std::string_view memory, std::string name) {
    ByteFile file;
    file.name_ = std::move(name);
    file.memory_ = memory;
    file.size_ = memory.size();
    return file;
}

std::string_view ByteFile::bytes(std::uint64_t at, std::size_t count) {
    if (at >= size_) return {};
    count = static_cast<std::size_t>(std::min<std::uint64_t>(count, size_ - at));
    if (!fd_) return memory_.substr(static_cast<std::size_t>(at), count);
    if (at < window_at_ || at + count > window_at_ + window_.size()) {
        window_.resize(std::max(count, kReadAhead));
        window_.resize(os_pread(fd_.get(), window_.data(), window_.size(), at));
        window_at_ = at;
    }
    const std::string_view found = std::string_view(window_).substr(static_cast<std::size_t>(at - window_at_));
    return found.substr(0, count);  // shorter when somebody cut the file meanwhile
}

bool RecordWalker::next(RecordPlace& place) {
    if (next_ >= file_.size()) return false;
    const std::uint64_t left = file_.size() - next_;
    const auto refuse = [&](std::uint64_t at, const std::string& what) { throw RecordFailure(file_.name(), at, what); };
    if (++count_ > kMostRecords) refuse(next_, "more than " + std::to_string(kMostRecords) + " records");
    std::string_view header = file_.bytes(next_, kTfHeaderSize);
    if (header.size() < kTfHeaderSize)
        refuse(next_, std::to_string(header.size()) + " bytes are left, a record has at least 16");
    const std::uint32_t size = number_at(header, 0);
    if (size < kTfHeaderSize) refuse(next_, "a record that says it has " + std::to_string(size) + " bytes");
    if (size > left)
        refuse(next_, "a record of " + std::to_string(size) + " bytes where " + std::to_string(left) + " are left");
    place = {next_, size, next_, size, static_cast<std::int32_t>(number_at(header, 4)), 0};
    while (place.type == TFREC_wrapped && place.wraps < kMostWraps && place.length >= 2 * kTfHeaderSize) {
        header = file_.bytes(place.start + kTfHeaderSize, kTfHeaderSize);
        if (header.size() < kTfHeaderSize) refuse(place.start, "the file was cut while it was read");
        const std::uint32_t inner = number_at(header, 0);
        if (inner != place.length - kTfHeaderSize)
            refuse(place.start + kTfHeaderSize, "a wrapped record of " + std::to_string(inner) + " bytes in " +
                                                    std::to_string(place.length - kTfHeaderSize));
        place.start += kTfHeaderSize;
        place.length = inner;
        place.type = static_cast<std::int32_t>(number_at(header, 4));
        ++place.wraps;
    }
    next_ += size;
    return true;
}

std::string_view RecordWalker::head(const RecordPlace& place, std::size_t limit) {
    return file_.bytes(place.start, std::min<std::size_t>(limit, place.length));
}

bool opens(std::int32_t type) { return type == TFREC_start_package_type || type == TFREC_start_alternatives; }
bool closes(std::int32_t type) { return type == TFREC_end_package || type == TFREC_end_alternatives; }

namespace {

// Builds an outline, front to back.
class Outliner {
public:
    explicit Outliner(RecordOutline& found) : found_(found) {}

    void add(const RecordPlace& place) {
        if (closes(place.type)) close(place);
        RecordStep step;
        step.position = place.position;
        step.type = place.type;
        step.depth = static_cast<std::uint32_t>(open_.size()) & 0x3FFFFFFF;
        found_.steps.push_back(step);
        if (opens(place.type)) open_.push_back(found_.steps.size() - 1);
    }
    void end() {
        for (const std::size_t at : open_) fault(found_.steps[at].position, "a package or group that does not end");
    }

private:
    void close(const RecordPlace& place) {
        if (open_.empty()) return fault(place.position, "the end of a package or group that was not begun");
        const bool package = found_.steps[open_.back()].type == TFREC_start_package_type;
        if (package != (place.type == TFREC_end_package))
            fault(place.position, package ? "the end of a group ends a package" : "the end of a package ends a group");
        open_.pop_back();
    }
    void fault(std::uint64_t at, std::string_view what) {
        if (found_.faults.size() < RecordOutline::kMostFaults)
            found_.faults.push_back("offset " + std::to_string(at) + ": " + std::string(what));
    }

    RecordOutline& found_;
    std::vector<std::size_t> open_;  // steps that opened what is still open
};

// Backwards, what has been seen at a depth is what follows a step there. Ends are no things of their own.
void mark_last(std::vector<RecordStep>& steps) {
    std::vector<bool> seen;
    for (std::size_t i = steps.size(); i-- > 0;) {
        RecordStep& step = steps[i];
        if (closes(step.type)) continue;
        const std::size_t depth = step.depth;
        step.parent = seen.size() > depth + 1 ? 1 : 0;
        seen.resize(depth + 1);  // what is deeper stands in this step, not beside the steps before it
        step.last = seen[depth] ? 0 : 1;
        seen[depth] = true;
    }
}

}  // namespace

RecordOutline outline(ByteFile& file) {
    RecordOutline found;
    Outliner outliner(found);
    RecordWalker walker(file);
    try {
        for (RecordPlace place; walker.next(place);) outliner.add(place);
    } catch (const RecordFailure& failure) {
        found.failure = failure.what();
    }
    outliner.end();
    mark_last(found.steps);
    return found;
}

}  // namespace morvane
