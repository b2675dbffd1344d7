// `morvane item cat`: see item.h.
#include "morvane/item.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>

#include "er/er.h"
#include "im/im.h"
#include "morvane/failure.h"
#include "morvane/record_file.h"
#include "morvane/store.h"

namespace morvane {
namespace {

constexpr std::size_t kBlock = std::size_t{256} << 10;

// "MESSAGE#k": the message (an entry or a message file; nothing is the one queued last) and the number.
std::string attached_file(const std::string& queue, const std::string& what, std::size_t hash) {
    std::size_t number = 0;
    const std::string_view digits = std::string_view(what).substr(hash + 1);
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc{} || end != digits.data() + digits.size() || digits.empty())
        throw Failure("\"" + what + "\": a number is wanted after #");
    const Subject subject = find_subject(queue, what.substr(0, hash));
    std::string path = subject.path;
    if (subject.kind == Subject::Kind::entry) path = file_path(read_entry(path).front().message, path);
    if (subject.kind != Subject::Kind::entry && subject.kind != Subject::Kind::message)
        throw Failure(path + " is not a message");
    const MessageFile message = read_message(path);
    if (number >= message.files.size())
        throw Failure("the message has " + counted(message.files.size() - 1, "attached file", "attached files"));
    return file_path(message.files[number], message.path);
}

std::string path_of(const ItemOptions& options) {
    const std::size_t hash = options.what.rfind('#');
    if (hash != std::string::npos && !os_fexists(options.what)) return attached_file(options.queue, options.what, hash);
    const Subject subject = find_subject(options.queue, options.what);
    if (subject.kind == Subject::Kind::entry && options.what.find('/') == std::string::npos)
        throw Failure("\"" + options.what + "\" is a queue entry; its files are " + options.what + "#0, #1 and so on");
    return subject.path;
}

}  // namespace

int cat_item(const ItemOptions& options, int fd, const Screen& screen) {
    if (options.what.empty()) throw Failure("which item?");
    ByteFile file = ByteFile::open(path_of(options));
    const bool filtered = ::isatty(fd) == 1 && !options.raw;  // what mail holds must not drive a terminal
    std::uint64_t at = 0;
    std::string line;
    while (at < file.size()) {
        const std::string_view block = file.bytes(at, kBlock);
        if (block.empty()) er_SystemEscape(EIO, file.name());
        at += block.size();
        if (!filtered) {
            os_write_all(fd, block);
            continue;
        }
        std::string out;
        for (const char c : block) {
            if (c != '\n') line += c;
            if (c != '\n' && line.size() < kBlock) continue;
            out += harmless(line, screen);
            if (c == '\n') out += '\n';
            line.clear();
        }
        os_write_all(fd, out);
    }
    if (!line.empty()) os_write_all(fd, harmless(line, screen));
    return 0;
}

}  // namespace morvane
