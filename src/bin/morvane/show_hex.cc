// The annotated dump of record files: every record with its offset in the file, every field with its offset in the
// record, its bytes and what they mean; bytes that no field covers are there too.
//
//   00000000  header (1100), 46 bytes
//     +000   00 00 00 2e          size             46
//     +014   00 00                class            0  message
#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

#include "morvane/layout.h"
#include "morvane/show.h"
#include "morvane/spell.h"
#include "morvane/text.h"
#include "tf/record.h"

namespace morvane {
namespace {

constexpr std::size_t kRow = 16;            // bytes in a line
constexpr std::uint64_t kBytesShown = 256;  // of what no number tells better, unless all is wanted
constexpr std::size_t kKeyWidth = 20;

// The header that every record has, as fields like any other.
// clang-format off
constexpr FieldRow kRecordHeader[] = {
    {"size",   Kind::u32, 0},
    {"type",   Kind::i32, 4},
    {"result", Kind::i32, 8},
    {"flags",  Kind::i16, 12},
    {"word",   Kind::i16, 14},
};
// clang-format on
constexpr RecordRow kAnyRecord{0, "", "", kRecordHeader};

template <class... Args>
std::string format(const char* pattern, Args... args) {
    std::array<char, 64> text{};
    const int length = std::snprintf(text.data(), text.size(), pattern, args...);
    return {text.data(), static_cast<std::size_t>(std::max(0, length))};
}

class Dump {
public:
    Dump(ShowContext& context, ByteFile& file) : context_(context), file_(file) {}

    void records() {
        RecordWalker walker(file_);
        for (RecordPlace place; walker.next(place);) record(place, std::string(walker.head(place)));
    }

private:
    void record(const RecordPlace& place, const std::string& head);
    void fields(const RecordPlace& place, const FieldList& list, std::uint64_t& covered);
    void line(const RecordPlace& place, std::uint64_t at, std::string_view bytes, std::string_view key,
              const std::string& meaning);
    void block(const RecordPlace& place, std::uint64_t at, std::uint64_t length, std::string_view key,
               const std::string& meaning);
    std::string meaning_of(const FieldList& list, const FieldValue& value) const;
    std::string faint(const std::string& text) const { return context_.screen.paint(Ink::faint, text); }

    ShowContext& context_;
    ByteFile& file_;
};

void Dump::line(const RecordPlace& place, std::uint64_t at, std::string_view bytes, std::string_view key,
                const std::string& meaning) {
    const std::uint64_t in_record = place.start - place.position + at;
    std::string hex;
    for (const char byte : bytes) hex += format("%02x ", static_cast<unsigned char>(byte));
    hex.resize(std::max(hex.size(), kRow * 3), ' ');
    std::string name(key);
    if (!key.empty() || !meaning.empty()) name.resize(std::max(name.size() + 1, kKeyWidth), ' ');
    context_.out << faint(format("  +%03llx   ", static_cast<unsigned long long>(in_record))) << hex << ' ';
    context_.out << context_.screen.paint(Ink::label, name) << meaning << '\n';
}

// Bytes of the file in rows; the first row is named. The middle of a long block is left out.
void Dump::block(const RecordPlace& place, std::uint64_t at, std::uint64_t length, std::string_view key,
                 const std::string& meaning) {
    const std::uint64_t shown = context_.all ? length : std::min(length, kBytesShown);
    if (length == 0) return line(place, at, {}, key, meaning);
    for (std::uint64_t done = 0; done < shown; done += kRow) {
        const std::string bytes(file_.bytes(place.start + at + done,
                                            static_cast<std::size_t>(std::min<std::uint64_t>(kRow, shown - done))));
        if (bytes.empty()) break;  // the file was cut meanwhile
        std::string text = done == 0 ? meaning : "";
        if (done > 0 || meaning.empty()) {
            std::string ascii = bytes;
            for (char& byte : ascii)
                if (byte < 0x20 || byte > 0x7E) byte = '.';
            text = faint(ascii);
        }
        line(place, at + done, bytes, done == 0 ? key : "", text);
    }
    if (shown < length) context_.out << faint("          ... " + with_commas(length - shown) + " bytes more\n");
}

std::string Dump::meaning_of(const FieldList& list, const FieldValue& value) const {
    const Screen& screen = context_.screen;
    std::string words;
    const auto add = [&](const std::string& word) { words += (words.empty() ? "" : ", ") + word; };
    switch (value.row->kind) {
        case Kind::text: return '"' + shorten(harmless(value.text, screen), 80, screen) + '"';
        case Kind::subject: return '"' + shorten(harmless(readable_subject(value.text), screen), 80, screen) + '"';
        case Kind::name: return '"' + shorten(harmless(readable_name(value.text), screen), 80, screen) + '"';
        case Kind::bytes: return human_size(value.width);
        case Kind::item: return "domain " + std::to_string(value.item.domain) + ", " + item_name(value.item);
        case Kind::seconds: add(spell_date(value.number, list.number("zone"))); break;
        case Kind::clock: add(spell_date(value.number, 0)); break;
        case Kind::zone: add("minutes east"); break;
        default:
            if (value.row->spell != nullptr)
                for (const std::string& word : value.row->spell(value.number))
                    if (!word.empty()) add(word);
    }
    return std::to_string(value.number) + (words.empty() ? "" : "  " + words);
}

// `covered` is where the bytes begin that no field has shown yet.
void Dump::fields(const RecordPlace& place, const FieldList& list, std::uint64_t& covered) {
    for (const FieldValue& value : list.values) {
        if (value.at > covered) block(place, covered, value.at - covered, "", "");
        if (value.at >= covered) block(place, value.at, value.width, value.row->key, meaning_of(list, value));
        covered = std::max(covered, value.at + value.width);
    }
}

void Dump::record(const RecordPlace& place, const std::string& head) {
    const RecordRow* row = find_record(place.type);
    std::string title = format("%08llx  ", static_cast<unsigned long long>(place.position));
    title += context_.screen.paint(Ink::good, row == nullptr ? "record" : row->name);
    title += " (" + std::to_string(place.type) + "), " + counted(place.length, "byte", "bytes");
    for (int i = 0; i < place.wraps; ++i) title += i == 0 ? ", wrapped" : " again";
    context_.out << title << '\n';
    for (RecordPlace outer{place.position, place.size, place.position, place.size, TFREC_wrapped, 0};
         outer.start < place.start; outer.start += kTfHeaderSize)
        block(outer, 0, kTfHeaderSize, "wrapper", "");
    std::uint64_t covered = 0;
    fields(place, read_fields(kAnyRecord, head, place.length), covered);
    if (row != nullptr) {
        const FieldList list = read_fields(*row, head, place.length);
        fields(place, list, covered);
        if (list.missing != nullptr) {
            const std::string what = "the record ends before its field " + std::string(list.missing->key);
            context_.out << "  " << context_.screen.paint(Ink::damage, what) << '\n';
            context_.note_damage(file_.name() + ": offset " + std::to_string(place.position) + ": " + what);
        }
    }
    if (covered < place.length) block(place, covered, place.length - covered, "", "");
}

void dump_file(ShowContext& context, const std::string& path) {
    ByteFile file = ByteFile::open(path);
    context.out << context.screen.paint(Ink::label, harmless(file.name(), context.screen)) << "  "
                << human_size(file.size()) << '\n';
    show_hex(context, file);
    context.out << '\n';
}

// A message is its record files: the message file, the main transfer file, the lists.
void dump_message(ShowContext& context, const std::string& path) {
    dump_file(context, path);
    const MessageFile message = read_message(path);
    for (std::size_t i = 0; i < message.files.size(); ++i) {
        const std::string_view extension(message.files[i].extension.data(), message.files[i].extension.size());
        if (i == 0 || extension == kTransferFile) dump_file(context, file_path(message.files[i], message.path));
    }
}

}  // namespace

void show_hex(ShowContext& context, ByteFile& file) { Dump(context, file).records(); }

void show_hex(ShowContext& context, const Subject& subject) {
    if (subject.kind == Subject::Kind::message) return dump_message(context, subject.path);
    dump_file(context, subject.path);
    if (subject.kind != Subject::Kind::entry) return;
    for (const QueuedMessage& message : read_entry(subject.path))
        dump_message(context, file_path(message.message, subject.path));
}

}  // namespace morvane
