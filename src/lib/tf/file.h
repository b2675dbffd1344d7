// Transfer files: a plain sequence of records in an item of extension "tran". A position is the byte offset of a
// record's first byte. A small transfer file lives in memory until its message is queued.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "im/im.h"
#include "tf/record.h"

// Where a record stands, and what it is.
struct tf_RecordHead {
    std::int64_t position = 0;
    std::uint32_t size = 0;
    std::int32_t type = 0;
};

class tf_File {
public:
    tf_File() = default;
    explicit operator bool() const { return static_cast<bool>(item_); }
    im_Item& item() {
        window_.clear();  // whoever asks may cut it and write something else
        return item_;
    }
    const im_Item& item() const { return item_; }
    im_Item release_item() { return std::move(item_); }

    std::int64_t append(const tf_Record& record);  // returns its position
    void go_to(std::int64_t position) { next_ = position; }
    bool read(tf_Record& record);             // false at the end; raises EILSEQ on a size that cannot be
    void overwrite(const tf_Record& record);  // the record just read; raises EINVAL unless its length is the same
    std::int64_t end() const { return static_cast<std::int64_t>(item_.size()); }  // where the next record will begin
    // The next record's head alone, however long the record; the file goes on behind it. False at the end; raises as
    // read().
    bool read_head(tf_RecordHead& head);
    void read_at(const tf_RecordHead& head, tf_Record& record);  // the whole record of a head
    // Sets bits in the 32-bit value at offset `at` of a record, in place.
    void set_bits(const tf_RecordHead& head, std::size_t at, std::int32_t bits);
    std::int64_t previous() const { return previous_; }

private:
    friend tf_File tf_CreateFile();
    friend tf_File tf_open(im_Item item);
    friend void tf_Trunc2NextRec(tf_File& file);
    friend std::int64_t tf_InsertRecords(tf_File& file, std::int64_t position, const tf_File& records);
    std::string_view bytes_at(std::uint64_t at, std::size_t count);

    im_Item item_;
    std::string window_;  // read ahead, when the file is no longer in memory
    std::uint64_t window_at_ = 0;
    std::int64_t next_ = 0;        // where read() goes on
    std::int64_t last_read_ = -1;  // the record read last, and its size
    std::size_t last_size_ = 0;
    std::int64_t previous_ = -1;  // the record appended last
};

tf_File tf_CreateFile();
tf_File tf_open(im_Item item);  // an item that holds records already
inline const ITEM_REF& tf_GetRef(const tf_File& file) { return file.item().ref(); }
inline void tf_AppendRecord(tf_File& file, const tf_Record& record) { file.append(record); }
inline std::int64_t tf_MarkNextRecord(const tf_File& file) { return file.end(); }
inline std::int64_t tf_MarkPrevRecord(const tf_File& file) { return file.previous(); }
inline void tf_GotoRecord(tf_File& file, std::int64_t position) { file.go_to(position); }
inline void tf_UnreadFile(tf_File& file) { file.go_to(0); }
inline bool tf_ReadRecord(tf_File& file, tf_Record& record) { return file.read(record); }
inline void tf_OverwriteRecord(tf_File& file, const tf_Record& record) { file.overwrite(record); }
void tf_Trunc2NextRec(tf_File& file);  // cuts the file where read() would go on

// Puts all records of `records` in front of the one at `position`, which moves back with everything behind it by the
// number of bytes returned; the record appended last is what it was. What stands behind is copied aside in blocks, so
// that memory stays flat; when it escapes there (no room, most likely), the file is as it was, later on it may have
// lost records. EINVAL: a position that is not in the file.
std::int64_t tf_InsertRecords(tf_File& file, std::int64_t position, const tf_File& records);

// Writes an object-file record (30700): the whole content of `object` at this moment under `name`, streamed;
// `first` is i32@16, `wrap` puts it into a wrapped record. When it escapes, the transfer file is as it was. EFBIG: more
// than a record can hold.
void mp_PutObjectFile(std::string_view name, const im_Item& object, tf_File& file, std::int32_t first, bool wrap);

// Writes a properties record (30710): two flag words, 1 when they describe relations, and the property text
// (mapi/property_text.h), streamed; it holds no NUL byte. `wrap` as above; `version` is the interface's and is 1. When
// it escapes, the transfer file is as it was. EFBIG: more than a record can hold.
void mp_PutMAPIPropsData(std::int32_t flags1, std::int32_t flags2, const im_Item& text, tf_File& file, int version,
                         bool wrap, bool relations);
void mp_PutMAPIPropsData(std::int32_t flags1, std::int32_t flags2, std::string_view text, tf_File& file, int version,
                         bool wrap, bool relations);
