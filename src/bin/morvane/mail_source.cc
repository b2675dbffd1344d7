// Mail files: see mail_source.h.
#include "morvane/mail_source.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "dstring/ascii.h"
#include "er/er.h"
#include "mim/address.h"
#include "mim/mim.h"
#include "morvane/failure.h"

namespace morvane {
namespace {

constexpr std::size_t kScanBlock = std::size_t{256} << 10;
constexpr std::size_t kFromLineLimit = 1024;
constexpr std::size_t kReadBlock = std::size_t{128} << 10;
constexpr std::size_t kMostQuotes = 256;                       // ">" before "From " in mbox quoting
constexpr std::size_t kHeaderLooked = std::size_t{256} << 10;  // of a header, for the envelope
constexpr std::size_t kFieldLimit = std::size_t{16} << 10;
constexpr std::size_t kAddressLimit = 1000;
constexpr std::size_t kNamesSorted = 50'000;  // of a folder at a time, so that a huge one is not held whole
constexpr std::string_view kFrom = "From ";

bool ends_with_any(std::string_view name, std::initializer_list<std::string_view> endings) {
    return std::any_of(endings.begin(), endings.end(), [&](std::string_view ending) {
        return name.size() >= ending.size() &&
               dstring_equal_ignoring_case(name.substr(name.size() - ending.size()), ending);
    });
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// A From_ line after a blank line has a time of day in it, "hh:mm"; a sentence that begins with "From " has hardly
// ever.
bool has_time(std::string_view line) {
    for (std::size_t at = line.find(':'); at != std::string_view::npos; at = line.find(':', at + 1)) {
        const bool before = at > 0 && is_digit(line[at - 1]);
        const bool after = at + 2 < line.size() && is_digit(line[at + 1]) && is_digit(line[at + 2]);
        if (before && after) return true;
    }
    return false;
}

std::string sender_of(std::string_view from_line) {
    from_line.remove_prefix(kFrom.size());
    while (from_line.starts_with(' ')) from_line.remove_prefix(1);
    const std::string_view word = from_line.substr(0, from_line.find_first_of(" \t\r\n"));
    return word == "-" ? std::string{} : std::string(word);  // "From - " is a mail reader's: it knows no sender
}

bool is_folder(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool is_maildir(const std::string& path) { return is_folder(path + "/new") && is_folder(path + "/cur"); }

// The first line that is a header field's, "Name: ...", with nothing but printable ASCII in the name.
bool looks_like_header(std::string_view start) {
    const std::string_view line = start.substr(0, start.find('\n'));
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos || colon == 0 || colon > 76) return false;
    return std::all_of(line.begin(), line.begin() + static_cast<std::ptrdiff_t>(colon),
                       [](char c) { return c > ' ' && c < 0x7F; });
}

std::string start_of(const std::string& path, std::size_t count) {
    const os_Fd file = os_open(path, O_RDONLY | O_NONBLOCK);
    struct stat info {};
    if (::fstat(file.get(), &info) != 0) er_SystemEscape(errno, path);
    if (!S_ISREG(info.st_mode)) throw Failure(path + ": not a regular file");
    std::string start(count, '\0');
    start.resize(os_pread(file.get(), start.data(), count, 0));
    return start;
}

MailPiece whole_file(const std::string& path) {
    MailPiece piece;
    piece.path = path;
    const os_Fd file = os_open(path, O_RDONLY);
    piece.end = os_fsize(file.get());
    return piece;
}

}  // namespace

MboxSplitter::MboxSplitter(std::string path)
    : path_(std::move(path)), file_(os_open(path_, O_RDONLY)), size_(os_fsize(file_.get())) {
    start_ = from_line_at(0);
}

// Bytes from `at`; at least `count` as far as there are so many. Good until the next call.
std::string_view MboxSplitter::look(std::uint64_t at, std::size_t count) {
    if (at >= size_) return {};
    count = static_cast<std::size_t>(std::min<std::uint64_t>(count, size_ - at));
    if (at < window_at_ || at + count > window_at_ + window_.size()) {
        window_.resize(std::max(count, kScanBlock));
        window_.resize(os_pread(file_.get(), window_.data(), window_.size(), at));
        window_at_ = at;
    }
    return std::string_view(window_).substr(static_cast<std::size_t>(at - window_at_));
}

// The From_ line at `at`, a line start: the first of the file, or one after a blank line.
std::optional<MboxSplitter::FromLine> MboxSplitter::from_line_at(std::uint64_t at) {
    std::uint64_t text_end = at;
    if (at > 0) {
        const std::uint64_t before = at < 4 ? 0 : at - 4;
        std::string_view ahead = look(before, static_cast<std::size_t>(at - before));
        ahead = ahead.substr(0, static_cast<std::size_t>(at - before));
        if (ahead.ends_with("\n\r\n")) {
            text_end = at - 2;
        } else if (ahead.ends_with("\n\n") || ahead == "\n") {
            text_end = at - 1;
        } else {
            return std::nullopt;
        }
    }
    std::string_view line = look(at, kFromLineLimit).substr(0, kFromLineLimit);
    const std::size_t end = line.find('\n');
    if (!line.starts_with(kFrom) || (end == std::string_view::npos && at + line.size() < size_)) return std::nullopt;
    line = line.substr(0, end);
    if (at > 0 && !has_time(line)) return std::nullopt;
    const std::uint64_t after = at + line.size() + (end == std::string_view::npos ? 0 : 1);
    return FromLine{at, after, text_end, sender_of(line)};
}

std::optional<MboxSplitter::FromLine> MboxSplitter::find_from_line(std::uint64_t from) {
    constexpr std::string_view mark = "\nFrom ";
    std::uint64_t at = from == 0 ? 0 : from - 1;  // the line end before a line counts
    while (at < size_) {
        const std::string_view text = look(at, kScanBlock);
        const void* found = ::memmem(text.data(), text.size(), mark.data(), mark.size());
        if (found == nullptr) {
            if (text.size() < mark.size() || at + text.size() >= size_) return std::nullopt;
            at += text.size() - mark.size() + 1;
            continue;
        }
        at += static_cast<std::uint64_t>(static_cast<const char*>(found) - text.data()) + 1;
        if (auto line = from_line_at(at)) return line;
    }
    return std::nullopt;
}

std::optional<MailPiece> MboxSplitter::next() {
    if (!start_) return std::nullopt;
    MailPiece piece;
    piece.path = path_;
    piece.begin = start_->after;
    piece.from_line = start_->sender;
    piece.quoted = true;
    piece.number = ++number_;
    start_ = find_from_line(piece.begin);
    piece.end = start_ ? start_->text_end : size_;
    if (!start_ && piece.end - piece.begin >= 2) {  // the blank line that ends the last message, too, is the file's
        const std::uint64_t before = std::max(piece.begin, piece.end < 3 ? 0 : piece.end - 3);
        std::string_view tail = look(before, static_cast<std::size_t>(piece.end - before));
        tail = tail.substr(0, static_cast<std::size_t>(piece.end - before));
        if (tail.ends_with("\n\r\n"))
            piece.end -= 2;
        else if (tail.ends_with("\n\n"))
            piece.end -= 1;
    }
    piece.end = std::max(piece.begin, piece.end);
    return piece;
}

// A folder being read: batches of sorted names.
class MailSource::Folder {
public:
    Folder(std::string path, bool maildir, bool inside)
        : path_(std::move(path)), maildir_(maildir), inside_(inside), listing_(::opendir(path_.c_str())) {
        if (!listing_) er_SystemEscape(errno, path_);
    }
    const std::string& path() const { return path_; }
    bool is_maildir() const { return maildir_; }  // its own files are a mail reader's notes
    bool is_inside() const { return inside_; }    // new/ or cur/ of a Maildir: every file is a message

    std::optional<std::string> next() {
        if (at_ == names_.size() && !read_batch()) return std::nullopt;
        return names_[at_++];
    }

private:
    bool read_batch() {
        names_.clear();
        at_ = 0;
        while (names_.size() < kNamesSorted) {
            errno = 0;
            const dirent* entry = ::readdir(listing_.get());
            if (entry == nullptr && errno != 0) er_SystemEscape(errno, path_);
            if (entry == nullptr) break;
            const std::string_view name = entry->d_name;
            if (name != "." && name != "..") names_.emplace_back(name);
        }
        std::sort(names_.begin(), names_.end());
        return !names_.empty();
    }

    struct Close {
        void operator()(DIR* listing) const { ::closedir(listing); }
    };
    std::string path_;
    bool maildir_, inside_;
    std::unique_ptr<DIR, Close> listing_;
    std::vector<std::string> names_;
    std::size_t at_ = 0;
};

MailSource::MailSource(std::vector<std::string> arguments) : arguments_(std::move(arguments)) {}
MailSource::~MailSource() = default;

// Descends to the next file. `single`: it is one message, whatever it looks like.
std::optional<std::string> MailSource::next_file(bool& single) {
    while (!folders_.empty()) {
        Folder& folder = *folders_.back();
        const std::optional<std::string> name = folder.next();
        if (!name) {
            folders_.pop_back();
            continue;
        }
        const std::string path = folder.path() + '/' + *name;
        struct stat link {
        }, target{};
        if (::lstat(path.c_str(), &link) != 0 || ::stat(path.c_str(), &target) != 0)
            continue;                 // gone, or leads nowhere
        if (S_ISDIR(link.st_mode)) {  // folders behind links are not entered: they may lead in a circle
            const bool messages = folder.is_maildir() && (*name == "new" || *name == "cur");
            const bool hidden = name->starts_with('.');
            if (messages || (folder.is_maildir() ? hidden : !hidden && !folder.is_inside()))
                folders_.push_back(std::make_unique<Folder>(path, !messages && is_maildir(path), messages));
            continue;
        }
        if (!S_ISREG(target.st_mode) || folder.is_maildir() || name->starts_with('.')) continue;
        if (folder.is_inside() || ends_with_any(*name, {".eml"})) {
            single = folder.is_inside();
            return path;
        }
        const std::string start = start_of(path, kFromLineLimit);
        if (ends_with_any(*name, {".mbox", ".mbx"}) || start.starts_with(kFrom) || looks_like_header(start)) {
            single = false;
            return path;
        }
        ++skipped_;
    }
    return take_argument(single);
}

std::optional<std::string> MailSource::take_argument(bool& single) {
    if (next_argument_ == arguments_.size()) return std::nullopt;
    const std::string& argument = arguments_[next_argument_++];
    single = false;
    if (!is_folder(argument)) return argument;
    folders_.push_back(std::make_unique<Folder>(argument, is_maildir(argument), false));
    return next_file(single);
}

std::optional<MailPiece> MailSource::next() {
    for (;;) {
        if (mbox_) {
            if (auto piece = mbox_->next()) return piece;
            mbox_.reset();
        }
        bool single = false;
        const std::optional<std::string> path = next_file(single);
        if (!path) return std::nullopt;
        if (single || !start_of(*path, kFrom.size()).starts_with(kFrom)) return whole_file(*path);
        mbox_.emplace(*path);
    }
}

std::uint64_t count_bytes(const std::vector<std::string>& arguments) {
    std::uint64_t bytes = 0;
    std::vector<std::string> waiting(arguments.rbegin(), arguments.rend());
    while (!waiting.empty()) {
        const std::string path = std::move(waiting.back());
        waiting.pop_back();
        struct stat info {};
        if (::lstat(path.c_str(), &info) != 0) continue;
        if (S_ISLNK(info.st_mode) && (::stat(path.c_str(), &info) != 0 || S_ISDIR(info.st_mode))) continue;
        if (S_ISREG(info.st_mode)) bytes += static_cast<std::uint64_t>(info.st_size);
        if (!S_ISDIR(info.st_mode)) continue;
        const std::unique_ptr<DIR, int (*)(DIR*)> listing(::opendir(path.c_str()), ::closedir);
        while (const dirent* entry = listing ? ::readdir(listing.get()) : nullptr) {
            const std::string_view name = entry->d_name;
            if (name == "." || name == "..") continue;
            const std::string inner = path + '/' + entry->d_name;
            if (entry->d_type == DT_DIR)
                waiting.push_back(inner);
            else if (::stat(inner.c_str(), &info) == 0 && S_ISREG(info.st_mode))
                bytes += static_cast<std::uint64_t>(info.st_size);
        }
    }
    return bytes;
}

PieceReader::PieceReader(const MailPiece& piece)
    : file_(os_open(piece.path, O_RDONLY)),
      begin_(piece.begin),
      at_(piece.begin),
      end_(piece.end),
      quoted_(piece.quoted) {
    ::posix_fadvise(file_.get(), static_cast<off_t>(begin_), static_cast<off_t>(end_ - begin_), POSIX_FADV_SEQUENTIAL);
}

// What a line begins with: a dot gets another before it, ">From " loses a ">". Bytes that do not decide it yet are
// held.
void PieceReader::append_line_start(std::string_view& text, std::string& out) {
    bool decided = held_.empty() && (!quoted_ || text.front() != '>');
    if (decided && text.front() == '.') out += '.';
    while (!decided && !text.empty()) {
        const std::size_t quotes = std::min(held_.find_first_not_of('>'), held_.size());
        const std::size_t matched = held_.size() - quotes;  // of "From "
        const char c = text.front();
        decided = !(matched == 0 && c == '>' && quotes < kMostQuotes) && c != kFrom[matched];
        if (decided) break;
        held_ += c;
        text.remove_prefix(1);
        decided = matched + 1 == kFrom.size() && c != '>';
        if (decided) held_.erase(0, 1);
    }
    if (!decided) return;
    out += held_;
    held_.clear();
    line_start_ = false;
}

void PieceReader::append(std::string_view text, std::string& out) {
    while (!text.empty()) {
        if (line_start_) append_line_start(text, out);
        if (line_start_ || text.empty()) continue;
        const std::size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end == std::string_view::npos ? end : end + 1);
        out += line;
        text.remove_prefix(line.size());
        line_start_ = end != std::string_view::npos;
    }
}

bool PieceReader::next(std::string& out) {
    if (ended_) return false;
    if (at_ < end_) {
        block_.resize(static_cast<std::size_t>(std::min<std::uint64_t>(kReadBlock, end_ - at_)));
        const std::size_t got = os_pread(file_.get(), block_.data(), block_.size(), at_);
        if (got == 0) end_ = at_;  // the file was cut meanwhile: what is there is the message
        at_ += got;
        append(std::string_view(block_).substr(0, got), out);
        if (at_ < end_) return true;
    }
    if (!held_.empty()) line_start_ = false;
    out += held_;
    held_.clear();
    out += line_start_ ? ".\r\n" : "\r\n.\r\n";
    ended_ = true;
    return true;
}

bool is_sendable(std::string_view address) {
    if (address.empty() || address.size() > kAddressLimit) return false;
    return std::all_of(address.begin(), address.end(),
                       [](char c) { return static_cast<unsigned char>(c) > ' ' && c != 0x7F && c != '<' && c != '>'; });
}

namespace {

// Gives the fields of a header that is held, unfolded, up to its end.
class Fields {
public:
    explicit Fields(std::string_view header) : rest_(header) {}
    bool next(std::string_view& name, std::string& value) {
        while (!rest_.empty()) {
            std::string_view line = take_line();
            if (line.empty()) return false;
            const std::size_t colon = line.find(':');
            name = mim_trim_trailing_space(line.substr(0, colon));
            value = colon == std::string_view::npos ? std::string{} : std::string(line.substr(colon + 1));
            while (rest_.starts_with(' ') || rest_.starts_with('\t')) {
                line = take_line();
                if (value.size() + line.size() <= kFieldLimit) value += line;
            }
            if (colon != std::string_view::npos) return true;
        }
        return false;
    }

private:
    std::string_view take_line() {
        const std::size_t end = rest_.find('\n');
        std::string_view line = rest_.substr(0, end);
        rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
        while (line.ends_with('\r')) line.remove_suffix(1);
        return line;
    }
    std::string_view rest_;
};

// The first of a list of addresses: up to the first comma or semicolon outside quotes, comments and angle brackets; a
// group's name before its first member is left out.
std::string first_address(std::string_view list) {
    std::size_t from = 0;
    int comment = 0;
    bool quoted = false, angle = false;
    for (std::size_t i = 0; i <= list.size(); ++i) {
        const char c = i < list.size() ? list[i] : ',';
        if (c == '\\' && (quoted || comment > 0)) {
            ++i;
            continue;
        }
        if (c == '"' && comment == 0) quoted = !quoted;
        if (!quoted && c == '(') ++comment;
        if (!quoted && c == ')' && comment > 0) --comment;
        if (!quoted && comment == 0 && (c == '<' || c == '>')) angle = c == '<';
        const bool ends = i >= list.size() || (!quoted && comment == 0 && !angle && (c == ',' || c == ';' || c == ':'));
        if (!ends) continue;
        const mim_Address address = mim_parse_address(list.substr(from, std::min(i, list.size()) - from));
        from = i + 1;
        if (c == ':' || address.kind != mim_AddressKind::address) continue;
        std::string spec;
        mim_append_addr_spec(spec, address, false);
        if (is_sendable(spec)) return spec;
    }
    return {};
}

constexpr std::array<std::string_view, 3> kRecipientFields = {"Delivered-To", "X-Original-To",
                                                              "To"};  // the surest first

}  // namespace

Envelope guess_envelope(const MailPiece& piece) {
    const os_Fd file = os_open(piece.path, O_RDONLY);
    std::string header(static_cast<std::size_t>(std::min<std::uint64_t>(kHeaderLooked, piece.end - piece.begin)), '\0');
    header.resize(os_pread(file.get(), header.data(), header.size(), piece.begin));
    std::optional<std::string> return_path;
    std::array<std::string, kRecipientFields.size()> found;
    std::string_view name;
    std::string value;
    for (Fields fields(header); fields.next(name, value);) {
        if (!return_path && dstring_equal_ignoring_case(name, "Return-Path")) return_path = first_address(value);
        for (std::size_t i = 0; i < found.size(); ++i)
            if (found[i].empty() && dstring_equal_ignoring_case(name, kRecipientFields[i]))
                found[i] = first_address(value);
    }
    Envelope envelope;
    const std::string_view from_line = piece.from_line == "MAILER-DAEMON" ? std::string_view{} : piece.from_line;
    envelope.from = return_path ? *return_path : is_sendable(from_line) ? std::string(from_line) : std::string{};
    const auto recipient = std::find_if(found.begin(), found.end(), [](const std::string& to) { return !to.empty(); });
    envelope.to.push_back(recipient == found.end() ? "postmaster" : *recipient);
    return envelope;
}

}  // namespace morvane
