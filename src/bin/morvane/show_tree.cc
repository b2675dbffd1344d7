// The tree of a message: its queue entry, its records in their packages and groups, and, where a content-file record
// stands, the file it describes: the names of a distribution list, the first lines of a text.
#include <algorithm>
#include <cerrno>
#include <functional>
#include <optional>
#include <string>

#include "er/er.h"
#include "morvane/failure.h"
#include "morvane/layout.h"
#include "morvane/meeting.h"
#include "morvane/show.h"
#include "morvane/spell.h"
#include "morvane/text.h"
#include "morvane/tree.h"
#include "tf/record.h"

namespace morvane {
namespace {

constexpr std::size_t kPreviewLines = 8;
constexpr std::size_t kPreviewWidth = 100;  // characters
constexpr std::size_t kValueWidth = 400;
constexpr std::size_t kMeetingLimit = std::size_t{1} << 20;  // of property text that is looked at for people
constexpr std::size_t kHeadShown = std::size_t{64} << 10;    // of a record's bytes
constexpr std::size_t kRunShown = 25;  // of names or recipients one after the other, unless all are wanted
constexpr std::int64_t kDistributionList = 1166;
constexpr std::int64_t kReportClass = 1;
constexpr std::string_view kInternetType = "rfc822;";            // of an address in a report
constexpr std::string_view kMarkUtf8 = "⊂ ", kMarkAscii = "< ";  // before what is told of a wrapped record

// The files of a message, as its content-file records come along.
class Attachments {
public:
    explicit Attachments(const MessageFile& message) : message_(message) {}
    std::size_t described() const { return described_; }
    std::size_t count() const { return message_.files.size() - 1; }
    // The file that the next content-file record describes; nothing when there are more records than files.
    std::optional<std::string> next() {
        ++described_;
        if (described_ > count()) return std::nullopt;
        return file_path(message_.files[described_], message_.path);
    }
    std::string path(std::size_t number) const { return file_path(message_.files[number], message_.path); }

private:
    const MessageFile& message_;
    std::size_t described_ = 0;
};

// Draws the records of one file below a depth.
class RecordTree {
public:
    RecordTree(ShowContext& context, Tree& tree, std::size_t depth) : context_(context), tree_(tree), depth_(depth) {}

    // `attachments` is null when nothing is known of them.
    void draw(ByteFile& file, Attachments* attachments);

private:
    struct Node {
        const RecordStep& step;
        const RecordPlace& place;
        const RecordRow* row;
        std::string_view head;
        FieldList fields;
        bool last;
    };

    std::string clean(std::string_view text) const {
        return shorten(harmless(text, context_.screen), kValueWidth, context_.screen);
    }
    std::string faint(std::string_view text) const { return context_.screen.paint(Ink::faint, text); }
    std::string mark(const Node& node) const;
    std::string join(const Words& words) const;
    void tell_damage(const std::string& where, const std::string& what);

    std::string name_text(std::string_view native) const;
    Words value_words(const FieldList& fields, const FieldValue& value) const;
    Words words_of(const FieldList& fields) const;
    void put(const Node& node, std::string_view label, const std::string& text, bool parent);

    void draw_record(Node& node, ByteFile& file, Attachments* attachments);
    void draw_plain(const Node& node);
    void draw_unknown(const Node& node);
    void draw_content(const Node& node, ByteFile& file, Attachments* attachments);
    void draw_object(const Node& node, ByteFile& file);
    void draw_properties(const Node& node, ByteFile& file);
    void draw_meeting(ByteFile& file, std::uint64_t start, std::uint64_t length);
    void draw_class(const Node& node);
    void draw_package(const Node& node);
    void draw_recipient(const Node& node);
    void draw_outcome(const Node& node, std::string_view outcome, Words words);
    void draw_acknowledgement(const Node& node);
    void draw_attached(const Node& node, const std::string& path);
    void draw_preview(ByteFile& file, std::uint64_t start, std::uint64_t length, std::string_view set);
    void remember_subject(std::size_t depth, std::string_view subject);
    bool inherits(std::size_t depth, std::string_view subject) const;
    bool skip_in_run(const RecordOutline& shape, std::size_t at);
    void draw_damage(const Words& damage);

    ShowContext& context_;
    Tree& tree_;
    std::size_t depth_;
    // Hashes of the subjects around, in RFC 2047 form, by depth, 0 for none: parts that carry one do not repeat it.
    std::vector<std::size_t> subjects_;
    bool report_ = false;  // the message itself is one
    std::int32_t run_type_ = 0;
    std::size_t run_ = 0;  // records of run_type_ one after the other, up to now
};

std::string RecordTree::mark(const Node& node) const {
    std::string marks;
    for (int i = 0; i < node.place.wraps; ++i) marks += context_.screen.utf8 ? kMarkUtf8 : kMarkAscii;
    return faint(marks);
}

std::string RecordTree::join(const Words& words) const {
    std::string text;
    for (const std::string& word : words) {
        if (word.empty()) continue;
        if (!text.empty()) text += context_.screen.dot();
        text += word;
    }
    return text;
}

void RecordTree::tell_damage(const std::string& where, const std::string& what) {
    context_.note_damage(where + ": " + what);
    tree_.note(context_.screen.paint(Ink::damage, clean(what)));
}

// "Jane Doe <jane@example.org>  /CN=Jane Doe/...": as people write it, then the native name.
std::string RecordTree::name_text(std::string_view native) const {
    if (native.empty()) return faint("no name");
    const std::string readable = readable_name(native);
    if (readable.empty()) return clean(native);
    return clean(readable) + "  " + faint(clean(without_address(native)));
}

// What the tree writes of one field; nothing for a field that says nothing.
Words RecordTree::value_words(const FieldList& fields, const FieldValue& value) const {
    const FieldRow& row = *value.row;
    Words words;
    if (row.spell != nullptr) {
        words = row.spell(value.number);
    } else if (row.kind == Kind::seconds) {
        words = {spell_date(static_cast<std::uint32_t>(value.number), fields.number("zone"))};
    } else if (row.kind == Kind::clock) {
        words = {spell_date(value.number, 0)};
    } else if (row.kind == Kind::item) {
        words = {item_name(value.item)};
    } else if (row.kind == Kind::name) {
        words = {name_text(value.text)};
    } else if (row.kind == Kind::subject) {
        words = {clean(readable_subject(value.text))};
    } else if (row.kind == Kind::text) {
        words = {clean(value.text)};
    } else if (value.number != 0 || row.look == Look::always) {
        words = {std::to_string(value.number)};
    }
    if (!row.lead.empty() && !words.empty() && !words.front().empty())
        words.front().insert(0, std::string(row.lead) + ' ');
    return words;
}

Words RecordTree::words_of(const FieldList& fields) const {
    Words words;
    for (const FieldValue& value : fields.values) {
        if (value.row->look == Look::never) continue;
        for (std::string& word : value_words(fields, value)) words.push_back(std::move(word));
    }
    return words;
}

void RecordTree::put(const Node& node, std::string_view label, const std::string& text, bool parent) {
    tree_.node(depth_ + node.step.depth, node.last, parent, Ink::label, label, mark(node) + text);
    if (node.row != nullptr && node.fields.missing != nullptr)
        tell_damage("record at " + std::to_string(node.place.position),
                    "the record ends before its field " + std::string(node.fields.missing->key));
}

void RecordTree::draw_plain(const Node& node) {
    std::string text = join(words_of(node.fields));
    if (text.empty() && node.place.type == TFREC_subject) text = faint("none");
    put(node, node.row->label, text, node.step.parent != 0);
}

void RecordTree::draw_unknown(const Node& node) {
    put(node, "record " + std::to_string(node.place.type), human_size(node.place.length), false);
    if (node.head.size() > kTfHeaderSize) tree_.note(faint(clean(node.head.substr(kTfHeaderSize, 200))));
}

void RecordTree::draw_package(const Node& node) {
    const Words flags = spell_package_flags(node.fields.number("pkgFlags"));
    Words words{clean(readable_subject(node.fields.text("rfc2047subject")))};
    words.push_back(clean(node.fields.text("pMIMEContentType")));
    words.insert(words.end(), flags.begin(), flags.end());
    for (const char* key : {"pkgSecurity", "itemType", "latinSubject", "subjLang", "latinSubjCharset"})
        if (const FieldValue* value = node.fields.find(key))
            for (std::string& word : value_words(node.fields, *value)) words.push_back(std::move(word));
    const bool message = node.fields.text("pMIMEContentType").empty();
    remember_subject(node.step.depth + 1, node.fields.text("rfc2047subject"));
    put(node, message ? "message" : "package", join(words), node.step.parent != 0);
}

// The category and the name in one line; what the sender asks for, when it is anything, in the next.
void RecordTree::draw_recipient(const Node& node) {
    Words wishes = spell_recipient_flags(node.fields.number("flags"));
    std::string category = wishes.front() + "  ";
    wishes.erase(wishes.begin());
    for (const char* key : {"reserved1", "reserved2"}) wishes.push_back(clean(node.fields.text(key)));
    put(node, "recipient " + std::to_string(node.fields.number("recipientId")),
        category + name_text(node.fields.text("name")), false);
    if (const std::string text = join(wishes); !text.empty()) tree_.note(text);
}

// Of a report: whom it is about and what has become of the message there; in the next line, why.
void RecordTree::draw_outcome(const Node& node, std::string_view outcome, Words words) {
    std::string_view original = node.fields.text("originalRecipient");
    if (original.starts_with(kInternetType)) original.remove_prefix(kInternetType.size());
    if (!original.empty()) words.push_back("originally " + clean(original));
    for (const char* key : {"reserved1", "reserved2", "reserved3", "reserved4"})
        words.push_back(clean(node.fields.text(key)));
    put(node, outcome, name_text(node.fields.text("name")), false);
    if (const std::string text = join(words); !text.empty()) tree_.note(text);
}

// A level without a word of its own is told by its number.
void RecordTree::draw_acknowledgement(const Node& node) {
    const std::int64_t flags = node.fields.number("flags");
    const std::string_view outcome = spell_outcome(flags);
    Words words = spell_acknowledgement(flags);
    if (!outcome.empty()) words.erase(words.begin());
    draw_outcome(node, outcome.empty() ? node.row->label : outcome, std::move(words));
}

void RecordTree::draw_preview(ByteFile& file, std::uint64_t start, std::uint64_t length, std::string_view set) {
    const Preview text = preview(file, start, length, set, kPreviewLines);
    const std::string_view bar = context_.screen.utf8 ? "┆ " : ": ";
    for (const std::string& line : text.lines)
        tree_.note(faint(bar) + shorten(harmless(line, context_.screen), kPreviewWidth, context_.screen));
    if (text.more) tree_.note(faint(std::string(bar) + std::string(context_.screen.ellipsis())));
}

void RecordTree::draw_object(const Node& node, ByteFile& file) {
    const FieldValue* content = node.fields.find("content");
    const std::string_view name = node.fields.text("objectName");
    put(node, node.row->label, join({clean(name), human_size(content == nullptr ? 0 : content->width)}), false);
    if (content == nullptr) return;
    if (content->cut)
        tell_damage(
            "object record at " + std::to_string(node.place.position),
            "its length says " + with_commas(static_cast<std::uint64_t>(node.fields.number("length"))) + " bytes");
    if (name.starts_with("inet")) draw_preview(file, node.place.start + content->at, content->width, "");
}

void RecordTree::draw_properties(const Node& node, ByteFile& file) {
    const FieldValue* text = node.fields.find("properties");
    const bool relations = node.fields.number("relations") != 0;
    put(node, node.row->label,
        join({relations ? "of relations" : "", human_size(text == nullptr ? 0 : text->width - 1)}), false);
    if (text == nullptr) return;
    const std::uint64_t start = node.place.start + text->at, length = text->width - (text->cut ? 0 : 1);
    if (!relations) draw_meeting(file, start, length);
    draw_preview(file, start, length, "");
}

void RecordTree::draw_meeting(ByteFile& file, std::uint64_t start, std::uint64_t length) {
    const std::string text(file.bytes(start, static_cast<std::size_t>(std::min<std::uint64_t>(length, kMeetingLimit))));
    for (const std::string& line : meeting_lines(text))
        tree_.note(shorten(harmless(line, context_.screen), kValueWidth, context_.screen));
}

void RecordTree::draw_class(const Node& node) {
    const std::string_view item_class = node.fields.text("itemClass");
    put(node, node.row->label, join({clean(item_class), std::string(class_in_words(item_class))}), false);
}

// The file that a content-file record describes: is it there, is it as large as the record says?
void RecordTree::draw_attached(const Node& node, const std::string& path) {
    const std::int64_t code = node.fields.number("contentType");
    const std::string where = "content record at " + std::to_string(node.place.position);
    try {
        ByteFile attached = ByteFile::open(path);
        const auto said = static_cast<std::uint32_t>(node.fields.number("fileSize"));
        if (code == kDistributionList) {
            RecordTree names(context_, tree_, depth_ + node.step.depth + 1);
            names.draw(attached, nullptr);
        } else {
            if (said != (attached.size() & 0xFFFFFFFF))
                tell_damage(where, "the record says " + with_commas(said) + " bytes, the file has " +
                                       with_commas(attached.size()));
            if (is_text_code(code)) draw_preview(attached, 0, attached.size(), node.fields.text("pContentCharset"));
        }
    } catch (const er_Escape& escape) {
        if (escape.group() != kSystemGroup || escape.reason() != ENOENT) throw;
        tell_damage(where, "the file " + path.substr(path.rfind('/') + 1) + " is missing");
    }
}

void RecordTree::draw_content(const Node& node, ByteFile&, Attachments* attachments) {
    const std::int64_t code = node.fields.number("contentType");
    const bool list = code == kDistributionList;
    const std::string_view name = spell_file_code(code);
    Words words{(name.empty() ? "file type" : std::string(name)) + faint(" (" + std::to_string(code) + ')')};
    if (!list) words.push_back(human_size(static_cast<std::uint32_t>(node.fields.number("fileSize"))));
    words.push_back(clean(node.fields.text("pContentCharset")));
    for (std::string& word : spell_content_flags(node.fields.number("contentFlags"))) words.push_back(std::move(word));
    std::optional<std::string> path;
    std::string label = node.row->label.data();
    if (attachments != nullptr) {
        path = attachments->next();
        label += ' ' + std::to_string(attachments->described());
    }
    put(node, label, join(words), list && path.has_value());

    Words more;
    for (const FieldValue& value : node.fields.values) {
        const bool said = value.row->key == "contentFlags" || value.row->look == Look::never;
        const bool inherited = value.row->key == "rfc2047subject" && (value.text == node.fields.text("pOrigFileName") ||
                                                                      inherits(node.step.depth, value.text));
        if (said || inherited) continue;
        for (std::string& word : value_words(node.fields, value)) more.push_back(std::move(word));
    }
    const std::int64_t original = node.fields.number("origContentType");
    if (original != code) more.push_back("was type " + std::to_string(original));
    if (const std::string text = join(more); !text.empty()) tree_.note(text);
    if (path) draw_attached(node, *path);
    if (attachments != nullptr && !path)
        tell_damage("content record at " + std::to_string(node.place.position), "no file is attached for it");
}

void RecordTree::remember_subject(std::size_t depth, std::string_view subject) {
    subjects_.resize(depth + 1);
    subjects_[depth] = std::hash<std::string_view>{}(subject);
}

bool RecordTree::inherits(std::size_t depth, std::string_view subject) const {
    for (std::size_t i = std::min(depth + 1, subjects_.size()); i-- > 0;)
        if (subjects_[i] != 0) return subjects_[i] == std::hash<std::string_view>{}(subject);
    return false;
}

void RecordTree::draw_record(Node& node, ByteFile& file, Attachments* attachments) {
    if (node.row == nullptr) return draw_unknown(node);
    node.fields = read_fields(*node.row, node.head, node.place.length);
    switch (node.place.type) {
        case TFREC_start_package_type: return draw_package(node);
        case TFREC_content_file_type: return draw_content(node, file, attachments);
        case TFREC_object_file: return draw_object(node, file);
        case TFREC_mapi_properties: return draw_properties(node, file);
        case TFREC_item_class: return draw_class(node);
        case TFREC_recipient: return draw_recipient(node);
        case TFREC_acknowledgement: return draw_acknowledgement(node);
        case TFREC_non_delivery: return draw_outcome(node, "not delivered", spell_reason(node.fields.number("reason")));
        case TFREC_header:
            if (node.step.depth == 0) report_ = node.fields.number("class") == kReportClass;
            return draw_plain(node);
        case TFREC_in_reply_to:
            // What a report answers is the message that it tells about.
            if (report_ && node.step.depth == 0) return put(node, "about", join(words_of(node.fields)), false);
            return draw_plain(node);
        case TFREC_subject: remember_subject(node.step.depth, node.fields.text("subject")); return draw_plain(node);
        default: return draw_plain(node);
    }
}

bool in_runs(std::int32_t type) {
    return (type >= TFREC_list_from && type <= TFREC_list_reply_to) || type == TFREC_recipient ||
           type == TFREC_acknowledgement || type == TFREC_non_delivery;
}

// Of many names of one kind the first are shown, then their number.
bool RecordTree::skip_in_run(const RecordOutline& shape, std::size_t at) {
    const RecordStep& step = shape.steps[at];
    run_ = step.type == run_type_ ? run_ + 1 : 1;
    run_type_ = step.type;
    if (context_.all || !in_runs(step.type) || run_ <= kRunShown) return false;
    const bool ends = at + 1 == shape.steps.size() || shape.steps[at + 1].type != step.type;
    if (run_ == kRunShown + 1 && ends) return false;  // one is sooner shown than counted
    if (ends)
        tree_.node(depth_ + step.depth, step.last != 0, false, Ink::faint, std::string(context_.screen.ellipsis()),
                   faint(with_commas(run_ - kRunShown) + " more, shown with --all"));
    return true;
}

// What is wrong with the file as a whole: after its records.
void RecordTree::draw_damage(const Words& damage) {
    for (std::size_t i = 0; i < damage.size(); ++i) {
        context_.note_damage(damage[i]);
        tree_.node(depth_, i + 1 == damage.size(), false, Ink::damage, "damage", clean(damage[i]));
    }
}

void RecordTree::draw(ByteFile& file, Attachments* attachments) {
    const RecordOutline shape = outline(file);
    Words damage = shape.faults;
    for (std::string& fault : damage) fault.insert(0, file.name() + ": ");
    if (!shape.failure.empty()) damage.push_back(shape.failure);
    const auto described =
        static_cast<std::size_t>(std::count_if(shape.steps.begin(), shape.steps.end(), [](const RecordStep& step) {
            return step.type == TFREC_content_file_type;
        }));
    if (attachments != nullptr)
        for (std::size_t number = described + 1; number <= attachments->count(); ++number)
            damage.push_back("attached file " + std::to_string(number) + " has no content record");
    RecordWalker walker(file);
    for (std::size_t at = 0; at < shape.steps.size(); ++at) {
        const RecordStep& step = shape.steps[at];
        RecordPlace place;
        walker.go_to(step.position);
        if (closes(step.type) || skip_in_run(shape, at) || !walker.next(place)) continue;
        const std::string head(walker.head(place, kHeadShown));  // the file is read elsewhere while the record is drawn
        const bool last = step.last != 0 && (step.depth > 0 || damage.empty());
        Node node{step, place, find_record(place.type), head, {}, last};
        draw_record(node, file, attachments);
    }
    draw_damage(damage);
}

void draw_message(ShowContext& context, Tree& tree, const std::string& path, std::size_t depth) {
    const MessageFile message = read_message(path);
    Attachments attachments(message);
    ByteFile main = ByteFile::open(attachments.path(0));
    RecordTree(context, tree, depth).draw(main, &attachments);
}

std::string message_title(const Screen& screen, const std::string& path) {
    const MessageFile message = read_message(path);
    std::string title = harmless(path.substr(path.rfind('/') + 1), screen);
    title += std::string(screen.dot()) + counted(message.files.size(), "file", "files");
    std::uint64_t bytes = 0;
    for (const ITEM_REF& ref : message.files) bytes += size_of_file(file_path(ref, path));
    title += std::string(screen.dot()) + human_size(bytes);
    if (!message.route.empty()) title += std::string(screen.dot()) + "route " + harmless(message.route, screen);
    return title;
}

// A message whose files cannot be opened does not hide the other one of its entry.
void draw_lost_message(ShowContext& context, Tree& tree, bool last, const std::string& damage) {
    context.note_damage(damage);
    tree.node(0, last, false, Ink::damage, "damage", harmless(damage, context.screen));
}

void draw_entry(ShowContext& context, Tree& tree, const Subject& subject) {
    const std::vector<QueuedMessage> messages = read_entry(subject.path);
    const Screen& screen = context.screen;
    const QueuedMessage& first = messages.front();
    std::string title = screen.paint(Ink::good, harmless(subject.entry, screen));
    const Words priority = spell_priority(first.priority);
    title += "  queued " + spell_date(first.seconds, 0) + std::string(screen.dot()) +
             (priority.empty() ? "normal priority" : priority.front());
    if (!subject.state.empty()) title += std::string(screen.dot()) + subject.state;
    tree.root(title);
    for (std::size_t i = 0; i < messages.size(); ++i) {
        const std::string path = file_path(messages[i].message, subject.path);
        const bool last = i + 1 == messages.size();
        try {
            tree.node(0, last, true, Ink::label, "message", message_title(screen, path));
            draw_message(context, tree, path, 1);
        } catch (const Failure& failure) {
            draw_lost_message(context, tree, last, failure.what());
        } catch (const er_Escape& escape) {
            draw_lost_message(context, tree, last, told(escape));
        }
    }
}

void draw_item(ShowContext& context, Tree& tree, const std::string& path) {
    ByteFile file = ByteFile::open(path);
    tree.root(context.screen.paint(Ink::good, harmless(path.substr(path.rfind('/') + 1), context.screen)) + "  " +
              human_size(file.size()));
    for (const std::string& line : preview(file, 0, file.size(), "", kPreviewLines).lines)
        tree.note(shorten(harmless(line, context.screen), kPreviewWidth, context.screen));
}

}  // namespace

void show_tree(ShowContext& context, ByteFile& file) {
    Tree tree(context.out, context.screen);
    const std::string name = file.name().substr(file.name().rfind('/') + 1);
    tree.root(context.screen.paint(Ink::good, harmless(name, context.screen)) + "  " + human_size(file.size()));
    RecordTree(context, tree, 0).draw(file, nullptr);
}

void show_tree(ShowContext& context, const Subject& subject) {
    Tree tree(context.out, context.screen);
    switch (subject.kind) {
        case Subject::Kind::entry: return draw_entry(context, tree, subject);
        case Subject::Kind::item: return draw_item(context, tree, subject.path);
        case Subject::Kind::message:
            tree.root(context.screen.paint(Ink::good, "message") + "  " + message_title(context.screen, subject.path));
            return draw_message(context, tree, subject.path, 0);
        case Subject::Kind::records: {
            ByteFile file = ByteFile::open(subject.path);
            return show_tree(context, file);
        }
    }
}

}  // namespace morvane
