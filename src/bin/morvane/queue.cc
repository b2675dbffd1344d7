// `morvane queue`: see queue.h.
#include "morvane/queue.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include <nlohmann/json.hpp>

#include "er/er.h"
#include "morvane/failure.h"
#include "morvane/json_text.h"
#include "morvane/layout.h"
#include "morvane/record_file.h"
#include "morvane/spell.h"
#include "morvane/store.h"
#include "morvane/text.h"
#include "q/q.h"
#include "tf/record.h"

namespace morvane {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kRecordsLooked = 200;  // for originator and subject, which stand near the start
constexpr std::size_t kBlock = std::size_t{256} << 10;
constexpr std::size_t kNameColumn = 36;

// What a line of the list tells of one message.
struct Digest {
    std::string id;
    std::string originator;
    std::string subject;
    std::string report;  // "acknowledgement" or "non-delivery", when it is one; it has no originator
    std::string about;   // the message that a report tells about
    std::size_t files = 0;
    std::uint64_t bytes = 0;
};

constexpr std::int32_t kTold[] = {TFREC_header, TFREC_creator, TFREC_subject, TFREC_in_reply_to};
constexpr std::int64_t kReportClass = 1;

void take_record(const FieldList& fields, std::int32_t type, Digest& digest) {
    if (type == TFREC_creator) digest.originator = readable_name(fields.text("name"));
    if (type == TFREC_subject) digest.subject = readable_subject(fields.text("subject"));
    if (type == TFREC_in_reply_to) digest.about = fields.text("identifier");
    if (type != TFREC_header || fields.number("class") != kReportClass) return;
    const Words words = spell_message_type(fields.number("messageType"));
    digest.report = words.empty() ? "report" : words.front();
}

void read_digest(const std::string& path, Digest& digest) {
    ByteFile file = ByteFile::open(path);
    RecordWalker walker(file);
    RecordPlace place;
    bool have_subject = false;
    for (std::size_t i = 0; i < kRecordsLooked && walker.next(place) && (!have_subject || digest.originator.empty());
         ++i) {
        const auto told = std::find(std::begin(kTold), std::end(kTold), place.type);
        if (place.wraps > 0 || told == std::end(kTold)) continue;
        take_record(read_fields(*find_record(place.type), walker.head(place), place.length), place.type, digest);
        have_subject = have_subject || place.type == TFREC_subject;
    }
    if (digest.report.empty()) digest.about.clear();  // a reply only answers it
}

Digest digest_of(const ITEM_REF& ref) {
    Digest digest;
    digest.id = item_name(ref);
    const MessageFile message = read_message(im_ItemRef2FName(ref));
    digest.files = message.files.size();
    for (const ITEM_REF& file : message.files) digest.bytes += size_of_file(im_ItemRef2FName(file));
    read_digest(im_ItemRef2FName(message.files.front()), digest);
    return digest;
}

std::string priority_word(int priority) {
    const Words words = spell_priority(priority);
    return words.empty() ? "normal" : words.front();
}

std::string padded(std::string text, std::size_t width) {
    const std::size_t have = width_of(text);
    if (have < width) text.append(width - have, ' ');
    return text;
}

Json entry_json(const EntryName& entry, const std::vector<QueuedMessage>& messages) {
    Json object;
    object["entry"] = lenient_utf8(entry.name);
    object["state"] = entry.taken ? "taken" : "waiting";
    object["priority"] = messages.front().priority;
    object["priorityText"] = priority_word(messages.front().priority);
    object["queued"] = messages.front().seconds;
    object["queuedText"] = iso_date(messages.front().seconds, 0);
    Json list = Json::array();
    for (const QueuedMessage& queued : messages) {
        const Digest digest = digest_of(queued.message);
        list.push_back({{"message", digest.id},
                        {"files", digest.files},
                        {"bytes", digest.bytes},
                        {"originator", lenient_utf8(digest.originator)},
                        {"subject", lenient_utf8(digest.subject)}});
        if (digest.report.empty()) continue;
        list.back()["report"] = digest.report;
        list.back()["about"] = lenient_utf8(digest.about);
    }
    object["messages"] = std::move(list);
    return object;
}

void print_entry(const EntryName& entry, const std::vector<QueuedMessage>& messages, Printer& out,
                 const Screen& screen) {
    const auto clean = [&](const std::string& text, std::size_t width) {
        return shorten(harmless(text, screen), width, screen);
    };
    for (std::size_t i = 0; i < messages.size(); ++i) {
        const Digest digest = digest_of(messages[i].message);
        std::string head = screen.paint(Ink::label, padded(harmless(entry.name, screen), kNameColumn)) + "  ";
        head += padded(entry.taken ? "taken" : "waiting", 8) + padded(priority_word(messages[i].priority), 11);
        head += iso_date(messages[i].seconds, 0).substr(0, 19) + "Z  ";
        out << (i == 0 ? head : std::string(kNameColumn + 2 + 8 + 11 + 22, ' '));
        // A report comes from nobody; it is told by its kind and the message that it is about.
        const std::string& from = digest.report.empty() ? digest.originator : digest.report;
        const bool untitled = digest.subject.empty() && !digest.about.empty();
        const std::string what = untitled ? "about " + digest.about : digest.subject;
        out << padded(human_size(digest.bytes), 11) << "  " << padded(clean(from, 30), 31) << ' ' << clean(what, 60)
            << '\n';
    }
}

void print_titles(Printer& out, const Screen& screen) {
    const std::string titles = padded("ENTRY", kNameColumn + 2) + padded("STATE", 8) + padded("PRIORITY", 11) +
                               padded("QUEUED", 22) + padded("SIZE", 13) + padded("FROM", 32) + "SUBJECT";
    out << screen.paint(Ink::faint, titles) << '\n';
}

// An entry that a consumer takes away while we look is no failure; damage is told and the list goes on.
template <class Tell>
bool tell_entry(const std::string& queue, const EntryName& entry, std::string& damage, Tell tell) {
    const std::string path = entry_path(queue, entry);
    try {
        tell(read_entry(path));
        return true;
    } catch (const Failure& failure) {
        if (damage.empty()) damage = failure.what();
    } catch (const er_Escape& escape) {
        if (escape.group() != kSystemGroup || escape.reason() != ENOENT) throw;
        if (os_fexists(path) && damage.empty()) damage = escape.detail() + " is missing";
    }
    return false;
}

void copy_file(const std::string& from, const std::string& to) {
    ByteFile source = ByteFile::open(from);
    os_Fd target = os_open(to, O_WRONLY | O_CREAT | O_EXCL, 0600);
    for (std::uint64_t at = 0; at < source.size();) {
        const std::string_view block = source.bytes(at, kBlock);
        if (block.empty()) er_SystemEscape(EIO, from);
        os_write_all(target.get(), block);
        at += block.size();
    }
    target.close_checked();
}

EntryName named_entry(const QueueOptions& options) {
    if (options.entry.empty()) throw Failure("which entry? morvane queue list names them");
    return find_entry(entry_names(options.queue), options.queue, options.entry);
}

EntryName next_entry(const QueueOptions& options) {
    const std::vector<EntryName> entries = entry_names(options.queue);
    if (!options.entry.empty()) return find_entry(entries, options.queue, options.entry);
    const auto waiting =
        std::find_if(entries.begin(), entries.end(), [](const EntryName& entry) { return !entry.taken; });
    if (waiting == entries.end()) throw Failure("nothing waits in " + options.queue);
    return *waiting;
}

void tell(const QueueOptions& options, const EntryName& entry, std::string_view what, Printer& out) {
    if (options.json) {
        out << json_text(Json{{"entry", lenient_utf8(entry.name)}, {"state", what}}) << '\n';
    } else {
        out << entry.name << '\n';
    }
}

}  // namespace

int queue_list(const QueueOptions& options, Printer& out, const Screen& screen) {
    const std::vector<EntryName> entries = entry_names(options.queue);
    std::string damage;
    std::size_t told = 0, taken = 0;
    if (options.json) out << '[';
    if (!options.json && !entries.empty()) print_titles(out, screen);
    for (const EntryName& entry : entries) {
        const bool done = tell_entry(options.queue, entry, damage, [&](const std::vector<QueuedMessage>& messages) {
            if (!options.json) return print_entry(entry, messages, out, screen);
            const std::string object = json_text(entry_json(entry, messages));
            out << (told == 0 ? "\n  " : ",\n  ") << object;
        });
        told += done ? 1 : 0;
        taken += done && entry.taken ? 1 : 0;
    }
    if (options.json) {
        out << (told == 0 ? "]\n" : "\n]\n");
    } else {
        out << counted(told - taken, "entry waits", "entries wait") << ", " << with_commas(taken)
            << (taken == 1 ? " is" : " are") << " taken\n";
    }
    out.flush();
    if (!damage.empty()) throw Failure(damage);
    return 0;
}

int queue_take(const QueueOptions& options, Printer& out, const Screen&) {
    const EntryName entry = next_entry(options);
    if (entry.taken) throw Failure(entry.name + " is taken already");
    Q_Take(options.queue, entry.name);
    tell(options, entry, "taken", out);
    return 0;
}

int queue_done(const QueueOptions& options, Printer& out, const Screen&) {
    const EntryName entry = named_entry(options);
    if (!entry.taken)
        throw Failure(entry.name + " has not been taken; morvane queue remove deletes an entry that waits");
    Q_Done(options.queue, entry.name);
    tell(options, entry, "done", out);
    return 0;
}

int queue_remove(const QueueOptions& options, Printer& out, const Screen&) {
    const EntryName entry = named_entry(options);
    if (entry.taken) throw Failure(entry.name + " is taken; morvane queue done deletes it");
    Q_Remove(options.queue, entry.name);
    tell(options, entry, "removed", out);
    return 0;
}

int queue_export(const QueueOptions& options, Printer& out, const Screen&) {
    if (options.to.empty()) throw Failure("where to? --to names a folder");
    const EntryName entry = named_entry(options);
    const std::string path = entry_path(options.queue, entry);
    const std::string folder = std::filesystem::absolute(options.to).string() + '/';
    os_mkdirs(folder.substr(0, folder.size() - 1), 0700);
    Json files = Json::array();
    const auto copy = [&](const std::string& from, const std::string& name) {
        copy_file(from, folder + name);
        files.push_back(name);
    };
    for (const QueuedMessage& queued : read_entry(path)) {
        const std::string message_path = im_ItemRef2FName(queued.message);
        for (const ITEM_REF& ref : read_message(message_path).files) copy(im_ItemRef2FName(ref), item_name(ref));
        copy(message_path, item_name(queued.message));
    }
    copy(path, entry.name);
    if (options.json) {
        out << json_text(Json{{"entry", lenient_utf8(entry.name)}, {"folder", lenient_utf8(folder)}, {"files", files}})
            << '\n';
    } else {
        out << counted(files.size(), "file", "files") << " of " << entry.name << " are in " << folder << '\n';
    }
    return 0;
}

}  // namespace morvane
