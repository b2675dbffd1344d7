// Records: see record.h.
#include "tf/record.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

namespace {

constexpr std::size_t kSizeAt = 0;
constexpr std::size_t kTypeAt = 4;

void store(char* to, std::uint64_t value, std::size_t width) {
    for (std::size_t i = width; i-- > 0; value >>= 8) to[i] = static_cast<char>(value & 0xFF);
}

std::uint64_t load(std::string_view bytes, std::size_t at, std::size_t width) {
    if (at > bytes.size() || width > bytes.size() - at) return 0;
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i) value = (value << 8) | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

}  // namespace

void tf_Record::init(std::int32_t type) {
    bytes_.assign(kTfHeaderSize, '\0');
    store(bytes_.data() + kSizeAt, kTfHeaderSize, 4);
    store(bytes_.data() + kTypeAt, static_cast<std::uint32_t>(type), 4);
}

void tf_Record::make_room(std::size_t end) {
    if (end <= bytes_.size()) return;
    bytes_.resize(std::max(end, kTfHeaderSize), '\0');
    store(bytes_.data() + kSizeAt, bytes_.size(), 4);
}

void tf_Record::put16(std::size_t at, std::int16_t value) {
    make_room(at + 2);
    store(bytes_.data() + at, static_cast<std::uint16_t>(value), 2);
}

void tf_Record::put32(std::size_t at, std::int32_t value) {
    make_room(at + 4);
    store(bytes_.data() + at, static_cast<std::uint32_t>(value), 4);
}

void tf_Record::put64(std::size_t at, std::int64_t value) {
    make_room(at + 8);
    store(bytes_.data() + at, static_cast<std::uint64_t>(value), 8);
}

std::size_t tf_Record::put_string(std::size_t at, std::string_view text) {
    text = text.substr(0, text.find('\0'));
    make_room(at + text.size() + 1);
    std::copy(text.begin(), text.end(), bytes_.begin() + static_cast<std::ptrdiff_t>(at));
    bytes_[at + text.size()] = '\0';  // a longer text may have stood there
    return at + text.size() + 1;
}

void tf_Record::put_ref(std::size_t at, const ITEM_REF& ref) {
    make_room(at + 20);
    char* to = bytes_.data() + at;
    store(to, ref.domain, 2);
    store(to + 2, ref.flags, 2);
    store(to + 4, ref.sub_domain, 4);
    store(to + 8, ref.file_id, 8);
    std::copy(ref.extension.begin(), ref.extension.end(), to + 16);
}

std::int16_t tf_Record::get16(std::size_t at) const { return static_cast<std::int16_t>(load(bytes_, at, 2)); }
std::int32_t tf_Record::get32(std::size_t at) const { return static_cast<std::int32_t>(load(bytes_, at, 4)); }
std::int64_t tf_Record::get64(std::size_t at) const { return static_cast<std::int64_t>(load(bytes_, at, 8)); }

std::string_view tf_Record::get_string(std::size_t at) const {
    if (at >= bytes_.size()) return {};
    const std::string_view rest = std::string_view(bytes_).substr(at);
    return rest.substr(0, rest.find('\0'));
}

ITEM_REF tf_Record::get_ref(std::size_t at) const {
    ITEM_REF ref;
    ref.domain = static_cast<std::uint16_t>(load(bytes_, at, 2));
    ref.flags = static_cast<std::uint16_t>(load(bytes_, at + 2, 2));
    ref.sub_domain = static_cast<std::uint32_t>(load(bytes_, at + 4, 4));
    ref.file_id = load(bytes_, at + 8, 8);
    if (at + 20 <= bytes_.size())
        std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(at) + 16, 4, ref.extension.begin());
    return ref;
}

std::uint32_t tf_record_size(std::string_view bytes) {
    const auto size = static_cast<std::uint32_t>(load(bytes, kSizeAt, 4));
    return size < kTfHeaderSize ? 0 : size;
}

void tf_InitRecord(tf_Record& record, std::int32_t type) { record.init(type); }
void tf_PutINT16(tf_Record& record, std::size_t at, std::int16_t value) { record.put16(at, value); }
void tf_PutINT32(tf_Record& record, std::size_t at, std::int32_t value) { record.put32(at, value); }
std::int32_t tf_GetINT32(const tf_Record& record, std::size_t at) { return record.get32(at); }

void tf_PutString(tf_Record& record, std::size_t at, std::size_t* next, std::string_view text) {
    const std::size_t after = record.put_string(at, text);
    if (next != nullptr) *next = after;
}

void tf_ChangeToWrapRec(tf_Record& record) {
    tf_Record outer(TFREC_wrapped);
    std::string bytes(outer.bytes());
    bytes.append(record.bytes());
    store(bytes.data() + kSizeAt, bytes.size(), 4);
    record.assign(std::move(bytes));
}

void tf_ChangeFromWrapRec(tf_Record& record) {
    if (record.type() != TFREC_wrapped || record.size() < 2 * kTfHeaderSize) return;
    record.assign(std::string(record.bytes().substr(kTfHeaderSize)));
}

void tf_MakeSubjectRec(tf_Record& record, std::int32_t type, std::string_view subject) {
    record.init(type);
    std::size_t at = record.put_string(kTfHeaderSize, subject);
    for (int i = 0; i < 4; ++i) at = record.put_string(at, "");
    record.put32(at, 0);
}

namespace {

// The strings of a content-file record, in the order in which they stand from offset 32.
constexpr std::size_t kContentStringsAt = 32;
constexpr std::array kContentStrings = {
    &TFREC_content_file::latinSubject,       &TFREC_content_file::pOrigFileName,
    &TFREC_content_file::pContentLang,       &TFREC_content_file::pContentCharset,
    &TFREC_content_file::subjLang,           &TFREC_content_file::latinSubjCharset,
    &TFREC_content_file::pX400_DataObjectId, &TFREC_content_file::pX400_ParamsObjectId,
    &TFREC_content_file::t61Subject,         &TFREC_content_file::t61SubjCharset,
    &TFREC_content_file::pOrigCharset,       &TFREC_content_file::pApplicRef,
    &TFREC_content_file::pMIMEContentType,   &TFREC_content_file::pContentDisp,
    &TFREC_content_file::pContentID,         &TFREC_content_file::pContentLocation,
    &TFREC_content_file::rfc2047subject,
};
static_assert(kContentStrings.size() == 17);

}  // namespace

void mp_GenerateEndPackage(tf_Record& record) { tf_InitRecord(record, TFREC_end_package); }

std::int32_t tf_file_size(std::uint64_t bytes) {
    constexpr std::uint64_t largest = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::min(bytes, largest));
}

void tf_initTFREC_content_file(TFREC_content_file& file, std::int32_t type) {
    file = TFREC_content_file{};
    file.origContentType = file.contentType = type;
}

void tf_ContentFileRecFromStruc(tf_Record& record, const TFREC_content_file& file) {
    record.init(TFREC_content_file_type);
    record.put32(16, file.origContentType);
    record.put32(20, file.contentType);
    record.put32(24, static_cast<std::int32_t>(file.contentFlags));
    record.put32(28, file.fileSize);
    std::size_t at = kContentStringsAt;
    for (const auto member : kContentStrings) at = record.put_string(at, file.*member);
}

TFREC_content_file tf_ContentFileRecToStruc(const tf_Record& record) {
    TFREC_content_file file;
    file.origContentType = record.get32(16);
    file.contentType = record.get32(20);
    file.contentFlags = static_cast<std::uint32_t>(record.get32(24));
    file.fileSize = record.get32(28);
    std::size_t at = kContentStringsAt;
    for (const auto member : kContentStrings) {
        file.*member = record.get_string(at);
        at += (file.*member).size() + 1;
    }
    return file;
}

void tf_initTFREC_start_package(TFREC_start_package& package, std::int32_t type, std::int32_t qnPkgType) {
    package = TFREC_start_package{};
    package.pkgType = type;
    package.qnPkgType = qnPkgType;
}

void tf_ST_PKG_from_Struc(tf_Record& record, const TFREC_start_package& package) {
    record.init(TFREC_start_package_type);
    record.put32(16, package.pkgType);
    record.put32(20, package.security);
    std::size_t at = record.put_string(24, package.latinSubject);
    at = record.put_string(at, package.subjLang);
    at = record.put_string(at, package.latinSubjCharset);
    record.put32(at, package.pkgFlags);
    record.put32(at + 4, package.qnPkgType);
    record.put16(at + 8, package.itemType);
    at = record.put_string(at + 10, package.pMIMEContentType);
    record.put_string(at, package.rfc2047subject);
}

TFREC_start_package tf_ST_PKG_to_Struc(const tf_Record& record) {
    TFREC_start_package package;
    package.pkgType = record.get32(16);
    package.security = record.get32(20);
    std::size_t at = 24;
    for (std::string TFREC_start_package::*member :
         {&TFREC_start_package::latinSubject, &TFREC_start_package::subjLang, &TFREC_start_package::latinSubjCharset}) {
        package.*member = record.get_string(at);
        at += (package.*member).size() + 1;
    }
    package.pkgFlags = record.get32(at);
    package.qnPkgType = record.get32(at + 4);
    package.itemType = record.get16(at + 8);
    package.pMIMEContentType = record.get_string(at + 10);
    package.rfc2047subject = record.get_string(at + 10 + package.pMIMEContentType.size() + 1);
    return package;
}

void tf_SetPkgParallel(tf_Record& record) {
    constexpr std::size_t kStringsAt = 24;
    constexpr int kStrings = 3;  // subject, its language, its set; then come the flags
    constexpr std::int32_t kParallelPackage = 2;
    std::size_t flags_at = kStringsAt;
    for (int i = 0; i < kStrings; ++i) flags_at += record.get_string(flags_at).size() + 1;
    record.put32(flags_at, record.get32(flags_at) | kParallelPackage);
}
