// JSON of a message or a record file: every record with every field, in file order; packages and groups by "depth", so
// that no nesting of mail makes a document that readers refuse. Written record by record. Keys are only ever added.
//
// A text is its bytes as UTF-8; where they are none, bytes that are not part of valid UTF-8 stand as the character of
// their Latin-1 code and KEY + "Bytes" holds all of them in hexadecimal. Beside a field stands what it means: KEY +
// "Text".
#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "er/er.h"
#include "morvane/failure.h"
#include "morvane/json_text.h"
#include "morvane/layout.h"
#include "morvane/show.h"
#include "morvane/spell.h"
#include "morvane/text.h"
#include "tf/record.h"

namespace morvane {
namespace {

using Json = nlohmann::ordered_json;

// Of a content-file record, what is told with its file.
struct Content {
    std::uint64_t position = 0;
    std::int64_t type = 0;
    std::string set;
};

constexpr std::int64_t kDistributionList = 1166;
constexpr std::size_t kPreviewLines = 8;
constexpr std::size_t kSetName = 40;        // characters of a character set's name
constexpr std::size_t kObjectBytes = 4096;  // of an object's content

std::string hex_of(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string out;
    out.reserve(bytes.size() * 2);
    for (const char byte : bytes) {
        out += digits[static_cast<unsigned char>(byte) >> 4];
        out += digits[static_cast<unsigned char>(byte) & 15];
    }
    return out;
}

void put_text(Json& object, std::string_view key, std::string_view text) {
    object[std::string(key)] = lenient_utf8(text);
    if (!is_utf8(text)) object[std::string(key) + "Bytes"] = hex_of(text);
}

std::string id_of(const ITEM_REF& ref) {
    std::string bytes(8, '\0');
    for (std::size_t i = 0; i < 8; ++i) bytes[i] = static_cast<char>(ref.file_id >> (56 - 8 * i) & 0xFF);
    return hex_of(bytes);
}

Json item_json(const ITEM_REF& ref) {
    Json item;
    item["domain"] = ref.domain;
    item["flags"] = ref.flags;
    item["subDomain"] = ref.sub_domain;
    item["fileId"] = id_of(ref);
    item["extension"] = lenient_utf8({ref.extension.data(), ref.extension.size()});
    return item;
}

void put_field(Json& fields, const FieldList& list, const FieldValue& value) {
    const std::string key(value.row->key);
    const std::string meaning = key + "Text";
    switch (value.row->kind) {
        case Kind::item: fields[key] = item_json(value.item); return;
        case Kind::bytes:
            if (value.text.size() <= kObjectBytes && value.text.size() == value.width)
                put_text(fields, key, value.text);
            return;
        case Kind::text: put_text(fields, key, value.text); break;
        case Kind::subject:
            put_text(fields, key, value.text);
            fields[meaning] = lenient_utf8(readable_subject(value.text));
            break;
        case Kind::name:
            put_text(fields, key, value.text);
            fields[meaning] = lenient_utf8(readable_name(value.text));
            break;
        case Kind::seconds:
            fields[key] = value.number;
            fields[meaning] = iso_date(value.number, list.number("zone"));
            return;
        case Kind::clock:
            fields[key] = value.number;
            fields[meaning] = iso_date(value.number, 0);
            return;
        default:
            fields[key] = value.number;
            if (value.row->spell != nullptr) fields[meaning] = value.row->spell(value.number);
            return;
    }
    if (value.cut) fields[key + "Cut"] = true;
}

// One record. `file` is a record file of any kind.
Json record_json(const RecordPlace& place, std::string_view head, std::size_t depth) {
    Json record;
    const RecordRow* row = find_record(place.type);
    record["position"] = place.position;
    record["type"] = place.type;
    record["name"] = row == nullptr ? std::string("unknown") : std::string(row->name);
    record["size"] = place.length;
    record["depth"] = depth;
    record["wrapped"] = place.wraps > 0;
    record["word"] = static_cast<unsigned char>(head[14]) << 8 | static_cast<unsigned char>(head[15]);
    if (row == nullptr) {
        record["content"] = hex_of(head.substr(kTfHeaderSize, kObjectBytes));
        return record;
    }
    const FieldList list = read_fields(*row, head, place.length);
    Json fields = Json::object();
    for (const FieldValue& value : list.values) put_field(fields, list, value);
    record["fields"] = std::move(fields);
    if (list.missing != nullptr) record["missing"] = std::string(list.missing->key);
    return record;
}

class Writer {
public:
    explicit Writer(ShowContext& context) : context_(context) {}

    void entry(const Subject& subject);
    void message(const std::string& path, std::string_view indent);
    void whole_message(const MessageFile& message, ByteFile& main, std::string_view indent);
    void records(ByteFile& file, std::string_view indent, std::vector<Content>* contents);
    void file(ByteFile& file);

private:
    static std::string dump(const Json& value) { return json_text(value); }
    void key(std::string_view indent, std::string_view name) {
        context_.out << indent << dump(std::string(name)) << ": ";
    }
    void attachments(const MessageFile& message, const std::vector<Content>& contents, std::string_view indent);
    void attachment(const MessageFile& message, std::size_t number, const Content* content, std::string_view indent);
    void attached_content(ByteFile& file, const Content& content, std::string_view indent);

    ShowContext& context_;
};

// The records as an array, and of the content-file records what is needed to tell of their files.
void Writer::records(ByteFile& file, std::string_view indent, std::vector<Content>* contents) {
    const RecordOutline shape = outline(file);
    RecordWalker walker(file);
    context_.out << '[';
    bool first = true;
    for (const RecordStep& step : shape.steps) {
        RecordPlace place;
        walker.go_to(step.position);
        if (!walker.next(place)) break;
        const Json record = record_json(place, walker.head(place), step.depth);
        context_.out << (first ? "\n" : ",\n") << indent << "  " << dump(record);
        first = false;
        if (contents != nullptr && place.type == TFREC_content_file_type) {
            const Json& fields = record["fields"];
            const std::string set = fields.value("pContentCharset", "");
            contents->push_back({place.position, fields.value("contentType", 0), set.substr(0, kSetName)});
        }
    }
    context_.out << (first ? "]" : "\n" + std::string(indent) + "]");
    for (const std::string& fault : shape.faults) context_.note_damage(file.name() + ": " + fault);
    if (!shape.failure.empty()) context_.note_damage(shape.failure);
}

void Writer::attached_content(ByteFile& file, const Content& content, std::string_view indent) {
    const std::int64_t code = content.type;
    const std::string inner = std::string(indent) + "  ";
    if (code == kDistributionList) {
        context_.out << ",\n";
        key(inner, "records");
        records(file, inner, nullptr);
    } else if (is_text_code(code)) {
        Json lines = Json::array();
        for (const std::string& line : preview(file, 0, file.size(), content.set, kPreviewLines).lines)
            lines.push_back(lenient_utf8(line));
        context_.out << ",\n";
        key(inner, "preview");
        context_.out << dump(lines);
    }
}

void Writer::attachment(const MessageFile& message, std::size_t number, const Content* content,
                        std::string_view indent) {
    const std::string path = file_path(message.files[number], message.path);
    const std::string inner = std::string(indent) + "  ";
    context_.out << indent << "{\n" << inner << "\"number\": " << number << ",\n";
    key(inner, "item");
    context_.out << dump(item_json(message.files[number])) << ",\n";
    key(inner, "path");
    context_.out << dump(lenient_utf8(path));
    if (content != nullptr) {
        context_.out << ",\n" << inner << "\"contentPosition\": " << content->position;
        context_.out << ",\n" << inner << "\"contentType\": " << dump(content->type);
        context_.out << ",\n" << inner << "\"contentTypeText\": " << dump(std::string(spell_file_code(content->type)));
    } else {
        context_.note_damage(message.path + ": attached file " + std::to_string(number) + " has no content record");
    }
    try {
        ByteFile file = ByteFile::open(path);
        context_.out << ",\n" << inner << "\"size\": " << file.size();
        if (content != nullptr) attached_content(file, *content, indent);
    } catch (const er_Escape& escape) {
        if (escape.group() != kSystemGroup || escape.reason() != ENOENT) throw;
        context_.out << ",\n" << inner << "\"missing\": true";
        context_.note_damage(path + " is missing");
    }
    context_.out << '\n' << indent << '}';
}

void Writer::attachments(const MessageFile& message, const std::vector<Content>& contents, std::string_view indent) {
    const std::string inner = std::string(indent) + "  ";
    context_.out << '[';
    for (std::size_t number = 1; number < message.files.size(); ++number) {
        context_.out << (number == 1 ? "\n" : ",\n");
        attachment(message, number, number <= contents.size() ? &contents[number - 1] : nullptr, inner);
    }
    context_.out << (message.files.size() > 1 ? "\n" + std::string(indent) + "]" : "]");
    if (contents.size() >= message.files.size())
        context_.note_damage(message.path + ": more content records than attached files");
}

// A message whose files cannot even be opened is told as its damage, so that the document stays one.
void Writer::message(const std::string& path, std::string_view indent) {
    MessageFile message;
    std::optional<ByteFile> main;
    std::string failure;
    try {
        message = read_message(path);
        main = ByteFile::open(file_path(message.files.front(), message.path));
    } catch (const er_Escape& escape) {
        failure = told(escape);
    } catch (const Failure& damaged) {
        failure = damaged.what();
    }
    if (main) return whole_message(message, *main, indent);
    context_.note_damage(failure);
    context_.out << dump(Json{{"path", lenient_utf8(path)}, {"damage", lenient_utf8(failure)}});
}

void Writer::whole_message(const MessageFile& message, ByteFile& main, std::string_view indent) {
    const std::string inner = std::string(indent) + "  ";
    context_.out << "{\n";
    key(inner, "path");
    context_.out << dump(lenient_utf8(message.path)) << ",\n"
                 << inner << "\"formatVersion\": " << dump(message.version) << ",\n";
    key(inner, "filterRoute");
    context_.out << dump(lenient_utf8(message.route)) << ",\n";
    key(inner, "transferFile");
    context_.out << dump(Json{{"item", item_json(message.files.front())},
                              {"path", lenient_utf8(main.name())},
                              {"size", main.size()}})
                 << ",\n";
    key(inner, "records");
    std::vector<Content> contents;
    records(main, inner, &contents);
    context_.out << ",\n";
    key(inner, "attachments");
    attachments(message, contents, inner);
    context_.out << '\n' << indent << '}';
}

void Writer::entry(const Subject& subject) {
    const std::vector<QueuedMessage> messages = read_entry(subject.path);
    const QueuedMessage& first = messages.front();
    const Words priority = spell_priority(first.priority);
    context_.out << "{\n";
    key("  ", "entry");
    context_.out << dump(lenient_utf8(subject.entry)) << ",\n";
    key("  ", "path");
    context_.out << dump(lenient_utf8(subject.path)) << ",\n";
    context_.out << "  \"priority\": " << dump(first.priority) << ",\n";
    context_.out << "  \"priorityText\": " << dump(priority.empty() ? std::string("normal") : priority.front())
                 << ",\n";
    context_.out << "  \"queued\": " << dump(first.seconds) << ",\n";
    context_.out << "  \"queuedText\": " << dump(iso_date(first.seconds, 0)) << ",\n";
    context_.out << "  \"messages\": [";
    for (std::size_t i = 0; i < messages.size(); ++i) {
        context_.out << (i == 0 ? "\n    " : ",\n    ");
        message(file_path(messages[i].message, subject.path), "    ");
    }
    context_.out << "\n  ]\n}\n";
}

void Writer::file(ByteFile& file) {
    context_.out << "{\n";
    key("  ", "path");
    context_.out << dump(lenient_utf8(file.name())) << ",\n  \"size\": " << file.size() << ",\n  \"records\": ";
    records(file, "  ", nullptr);
    context_.out << "\n}\n";
}

}  // namespace

void show_json(ShowContext& context, ByteFile& file) { Writer(context).file(file); }

void show_json(ShowContext& context, const Subject& subject) {
    Writer writer(context);
    switch (subject.kind) {
        case Subject::Kind::entry: return writer.entry(subject);
        case Subject::Kind::message:
            writer.message(subject.path, "");
            context.out << '\n';
            return;
        case Subject::Kind::records:
        case Subject::Kind::item: {
            ByteFile file = ByteFile::open(subject.path);
            return writer.file(file);
        }
    }
}

}  // namespace morvane
