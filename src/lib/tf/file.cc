// Transfer files: see file.h.
#include "tf/file.h"

#include <algorithm>
#include <cerrno>

#include "er/er.h"

namespace {
constexpr std::size_t kReadAhead = std::size_t{64} << 10;
constexpr std::size_t kCopyBlock = std::size_t{64} << 10;
}  // namespace

tf_File tf_CreateFile() { return tf_open(im_create(im_Domain::data, kTransferFile)); }

tf_File tf_open(im_Item item) {
    tf_File file;
    file.item_ = std::move(item);
    return file;
}

std::int64_t tf_File::append(const tf_Record& record) {
    previous_ = static_cast<std::int64_t>(item_.size());
    item_.write(record.bytes());
    return previous_;
}

std::string_view tf_File::bytes_at(std::uint64_t at, std::size_t count) {
    if (item_.in_memory()) return item_.view(at, count, window_);
    if (at < window_at_ || at + count > window_at_ + window_.size()) {
        window_at_ = at;
        window_.resize(std::max(count, kReadAhead));
        window_.resize(item_.read(at, window_.data(), window_.size()));
    }
    return std::string_view(window_).substr(static_cast<std::size_t>(at - window_at_), count);
}

bool tf_File::read(tf_Record& record) {
    const auto at = static_cast<std::uint64_t>(next_);
    if (at >= item_.size()) return false;
    const std::uint64_t left = item_.size() - at;
    tf_Record head;
    head.assign(std::string(bytes_at(at, 4)));
    const auto size = static_cast<std::uint32_t>(head.get32(0));
    if (size < kTfHeaderSize || size > left) er_SystemEscape(EILSEQ, "record at " + std::to_string(at));
    record.assign(std::string(bytes_at(at, size)));
    last_read_ = next_;
    next_ += size;
    return true;
}

void tf_File::overwrite(const tf_Record& record) {
    item_.overwrite(static_cast<std::uint64_t>(last_read_), record.bytes());
    window_.clear();
}

// The object's bytes are streamed behind a record head whose size already counts them.
void mp_PutObjectFile(std::string_view name, const im_Item& object, tf_File& file, std::int32_t first, bool wrap) {
    const std::uint64_t length = object.size();
    if (length > 0xFFFF0000U) er_SystemEscape(EFBIG, std::string(name));
    tf_Record head(TFREC_object_file);
    head.put32(16, first);
    head.put32(20, static_cast<std::int32_t>(length));
    head.put_string(24, name);
    const auto grown = [&](const tf_Record& record) {
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(record.size() + length));
    };
    head.put32(0, grown(head));
    if (wrap) {
        tf_ChangeToWrapRec(head);
        head.put32(0, grown(head));
    }
    file.append(head);
    std::string scratch;
    for (std::uint64_t at = 0; at < length; at += kCopyBlock) file.item().write(object.view(at, kCopyBlock, scratch));
}
