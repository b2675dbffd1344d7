// Transfer files: see file.h.
#include "tf/file.h"

#include <algorithm>
#include <cerrno>
#include <limits>

#include "er/er.h"

namespace {
constexpr std::size_t kReadAhead = std::size_t{64} << 10;
constexpr std::size_t kCopyBlock = std::size_t{64} << 10;

// Makes the record, and the one around it, count `more` bytes that will follow its own.
void count_more(tf_Record& head, std::uint64_t more, bool wrap, std::string_view name) {
    constexpr std::uint64_t largest = std::numeric_limits<std::uint32_t>::max();
    if (head.size() + more + kTfHeaderSize > largest) er_SystemEscape(EFBIG, std::string(name));
    const auto count = [&] { head.put32(0, static_cast<std::int32_t>(head.size() + more)); };
    count();
    if (!wrap) return;
    tf_ChangeToWrapRec(head);
    count();
}

void append_bytes(im_Item& to, const im_Item& from, std::uint64_t at) {
    std::string scratch;
    for (; at < from.size(); at += kCopyBlock) to.write(from.view(at, kCopyBlock, scratch));
}

// Appends a record whose end is the content of an item and then `tail`.
void append_with_item(tf_File& file, const tf_Record& head, const im_Item& item, std::string_view tail) {
    const std::uint64_t position = file.item().size();
    try {
        file.append(head);
        std::string scratch;
        for (std::uint64_t at = 0; at < item.size(); at += kCopyBlock)
            file.item().write(item.view(at, kCopyBlock, scratch));
        file.item().write(tail);
    } catch (...) {
        er_TryIgnoring([&] { file.item().truncate(position); });
        throw;
    }
}

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

bool tf_File::read_head(tf_RecordHead& head) {
    const auto at = static_cast<std::uint64_t>(next_);
    if (at >= item_.size()) return false;
    const std::string_view bytes = bytes_at(at, kTfHeaderSize);
    const std::uint32_t size = tf_record_size(bytes);
    if (size > item_.size() - at || size == 0) er_SystemEscape(EILSEQ, "record at " + std::to_string(at));
    tf_Record record;
    record.assign(std::string(bytes));
    head = {next_, size, record.type()};
    next_ += size;
    return true;
}

void tf_File::read_at(const tf_RecordHead& head, tf_Record& record) {
    record.assign(std::string(bytes_at(static_cast<std::uint64_t>(head.position), head.size)));
}

bool tf_File::read(tf_Record& record) {
    tf_RecordHead head;
    if (!read_head(head)) return false;
    read_at(head, record);
    last_read_ = head.position;
    last_size_ = head.size;
    return true;
}

void tf_File::set_bits(const tf_RecordHead& head, std::size_t at, std::int32_t bits) {
    constexpr std::size_t width = 4;
    if (at + width > head.size) er_SystemEscape(EINVAL, "bits beyond a record");
    tf_Record value;
    value.assign(std::string(bytes_at(static_cast<std::uint64_t>(head.position) + at, width)));
    value.put32(0, value.get32(0) | bits);
    item_.overwrite(static_cast<std::uint64_t>(head.position) + at, value.bytes().substr(0, width));
    window_.clear();
}

void tf_File::overwrite(const tf_Record& record) {
    if (last_read_ < 0 || record.size() != last_size_)
        er_SystemEscape(EINVAL, "overwriting a record of another length");
    item_.overwrite(static_cast<std::uint64_t>(last_read_), record.bytes());
    window_.clear();
}

void mp_PutObjectFile(std::string_view name, const im_Item& object, tf_File& file, std::int32_t first, bool wrap) {
    tf_Record head(TFREC_object_file);
    head.put32(16, first);
    head.put32(20, static_cast<std::int32_t>(object.size()));
    head.put_string(24, name);
    count_more(head, object.size(), wrap, name);
    append_with_item(file, head, object, {});
}

void mp_PutMAPIPropsData(std::int32_t flags1, std::int32_t flags2, const im_Item& text, tf_File& file, int /*version*/,
                         bool wrap, bool relations) {
    constexpr std::string_view end("", 1);  // of the text, which is a string
    tf_Record head(TFREC_mapi_properties);
    head.put32(16, flags1);
    head.put32(20, flags2);
    head.put16(24, relations ? 1 : 0);
    count_more(head, text.size() + end.size(), wrap, "properties");
    append_with_item(file, head, text, end);
}

void mp_PutMAPIPropsData(std::int32_t flags1, std::int32_t flags2, std::string_view text, tf_File& file, int version,
                         bool wrap, bool relations) {
    im_Item item = im_create(im_Domain::temporary, kScratchItem);
    item.write(text);
    mp_PutMAPIPropsData(flags1, flags2, item, file, version, wrap, relations);
}

void tf_Trunc2NextRec(tf_File& file) {
    file.item().truncate(static_cast<std::uint64_t>(file.next_));
    file.last_read_ = -1;
}

std::int64_t tf_InsertRecords(tf_File& file, std::int64_t position, const tf_File& records) {
    if (position < 0 || position > file.end()) er_SystemEscape(EINVAL, "records put in where no record is");
    const std::int64_t previous = file.previous_;
    im_Item moved = im_create(im_Domain::temporary, kScratchItem);
    append_bytes(moved, records.item(), 0);
    append_bytes(moved, file.item(), static_cast<std::uint64_t>(position));
    tf_GotoRecord(file, position);
    tf_Trunc2NextRec(file);
    append_bytes(file.item(), moved, 0);
    file.previous_ = previous >= position ? previous + records.end() : position + records.previous_;
    return records.end();
}
