// The floor under the gateway: a plain program that reads the same dialogue, gives as many replies and writes as many
// files of the same sizes into the same folders, and does nothing else: no header is understood, no record is made.
// What a gateway takes longer than this is what its work costs.
//
//   floor [--sync] [--parts COUNT SIZE] MAIN LIST MESSAGE ENTRY AUDIT      with $MORVANE_HOME
//
// The arguments are the sizes in bytes of what stands beside the body: the two transfer files, the message file, the
// queue entry and the line of the audit trail. The body has the size that it has: lines with LF line ends, leading dots
// taken off, uuencoded items decoded. With --parts the text is only read, to its end, and COUNT files of SIZE bytes
// stand for what MIME bodies decode to. --sync makes each message durable before its reply: syncfs(2) for the files,
// fsync(2) for the queue folder.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace {

constexpr std::size_t kReadBlock = std::size_t{256} << 10;
constexpr std::size_t kWriteBlock = std::size_t{128} << 10;
constexpr int kPipeSize = 1 << 20;

[[noreturn]] void fail(const char* what) {
    std::perror(what);
    std::exit(2);
}

void write_all(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0) fail("write");
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

// Standard input in lines, without their line ends; a view is good until the next line.
class Lines {
public:
    bool next(std::string_view& line) {
        for (;;) {
            const std::size_t have = end_ - begin_;
            if (const void* found = std::memchr(buffer_.get() + begin_, '\n', have)) {
                std::size_t length =
                    static_cast<std::size_t>(static_cast<const char*>(found) - (buffer_.get() + begin_));
                line = {buffer_.get() + begin_, length};
                begin_ += length + 1;
                if (line.ends_with('\r')) line.remove_suffix(1);
                return true;
            }
            if (!fill()) return false;
        }
    }

    // All lines up to the one that is a dot alone, which is found by its dot: most text has few.
    void skip_text() {
        std::string_view line;
        if (!next(line) || line == ".") return;
        --begin_;  // the line feed that a line with the dot stands behind
        for (std::size_t searched = begin_;;) {
            const void* found = std::memchr(buffer_.get() + searched, '.', end_ - searched);
            const std::size_t dot = found == nullptr ? end_ : static_cast<const char*>(found) - buffer_.get();
            if (dot + 2 >= end_) {
                begin_ = dot - 1;  // the dot, if this is one, needs the line feed before it and what follows it
                if (!fill()) return;
                searched = 1;
            } else if (ends_text(dot)) {
                begin_ = dot + 3;
                return;
            } else {
                searched = dot + 1;
            }
        }
    }

private:
    bool ends_text(std::size_t dot) const {
        return buffer_[dot - 1] == '\n' && buffer_[dot + 1] == '\r' && buffer_[dot + 2] == '\n';
    }

    bool fill() {
        std::memmove(buffer_.get(), buffer_.get() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
        if (end_ == kReadBlock) return false;  // a line that fills the buffer: the benchmarks have none
        const ssize_t got = ::read(STDIN_FILENO, buffer_.get() + end_, kReadBlock - end_);
        if (got <= 0) return false;
        if (got >= 65536 && !widened_) widened_ = ::fcntl(STDIN_FILENO, F_SETPIPE_SZ, kPipeSize) >= 0;
        end_ += static_cast<std::size_t>(got);
        return true;
    }

    std::unique_ptr<char[]> buffer_ = std::make_unique_for_overwrite<char[]>(kReadBlock);
    std::size_t begin_ = 0, end_ = 0;
    bool widened_ = false;
};

// A file that is written in large blocks.
class Output {
public:
    explicit Output(const std::string& path)
        : fd_(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)) {
        if (fd_ < 0) fail(path.c_str());
    }
    ~Output() {
        flush();
        ::close(fd_);
    }
    char* room(std::size_t bytes) {
        if (used_ + bytes > kWriteBlock) flush();
        return block() + used_;
    }
    void advance(std::size_t bytes) { used_ += bytes; }

private:
    static char* block() {
        static const std::unique_ptr<char[]> the_block = std::make_unique_for_overwrite<char[]>(kWriteBlock);
        return the_block.get();
    }
    void flush() {
        write_all(fd_, {block(), used_});
        used_ = 0;
    }
    int fd_;
    std::size_t used_ = 0;
};

struct Sizes {
    std::size_t parts = 0, part = 0;  // none: the body is taken as it is
    std::size_t main = 0, list = 0, message = 0, entry = 0, audit = 0;
};

class Home {
public:
    Home(std::string path, const Sizes& sizes, bool sync) : path_(std::move(path)), sizes_(sizes), sync_(sync) {
        data_ = open_folder("/data");
        fresh_ = open_folder("/queues/ROUTER/new");
        filler_.assign(std::size_t{1} << 20, 'x');
    }

    std::string new_item(const char* extension) {
        static std::uint64_t running = static_cast<std::uint64_t>(::getpid()) << 42;
        ++running;
        std::array<char, 64> name;  // sixteen items in a row share a folder, as the gateway's do
        std::snprintf(name.data(), name.size(), "/data/1/%02x/%014llx%02x.%s",
                      static_cast<unsigned>(running >> 4 & 0xFF), static_cast<unsigned long long>(running),
                      static_cast<unsigned>(running >> 4 & 0xFF), extension);
        return path_ + name.data();
    }

    void write_parts() {
        for (std::size_t part = 0; part < sizes_.parts; ++part) fill_file(new_item("item"), sizes_.part);
    }

    void write_rest() {
        fill_file(new_item("tran"), sizes_.main);
        fill_file(new_item("tran"), sizes_.list);
        fill_file(new_item("mesg"), sizes_.message);
        static int running = 0;
        const std::string name = std::to_string(::getpid()) + "-" + std::to_string(++running);
        const std::string draft = path_ + "/queues/ROUTER/tmp/" + name;
        fill_file(draft, sizes_.entry);
        if (sync_ && ::syncfs(data_) != 0) fail("syncfs");
        if (::rename(draft.c_str(), (path_ + "/queues/ROUTER/new/" + name).c_str()) != 0) fail("rename");
        if (sync_ && ::fsync(fresh_) != 0) fail("fsync");
        const int trail =
            ::open((path_ + "/logs/audit.jsonl").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        write_all(trail, std::string_view(filler_).substr(0, sizes_.audit));
        ::close(trail);
    }

private:
    int open_folder(const char* folder) const {
        const int fd = ::open((path_ + folder).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0) fail(folder);
        return fd;
    }
    void fill_file(const std::string& path, std::size_t size) const {
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd < 0) fail(path.c_str());
        for (; size > filler_.size(); size -= filler_.size()) write_all(fd, filler_);
        write_all(fd, std::string_view(filler_).substr(0, size));
        ::close(fd);
    }

    std::string path_, filler_;
    Sizes sizes_;
    bool sync_;
    int data_, fresh_;
};

unsigned value_of(char c) { return (static_cast<unsigned char>(c) - 0x20U) & 0x3FU; }

// The bytes of a line as its count says; four characters are three of them.
void decode_line(std::string_view line, Output& out) {
    const std::size_t count = line.empty() ? 0 : value_of(line[0]);
    if (line.size() < 1 + (count + 2) / 3 * 4) return;  // cut off: the benchmarks have none
    char* to = out.room(count + 3);
    const char* from = line.data() + 1;
    for (std::size_t done = 0; done < count; done += 3, from += 4) {
        const unsigned group =
            value_of(from[0]) << 18 | value_of(from[1]) << 12 | value_of(from[2]) << 6 | value_of(from[3]);
        *to++ = static_cast<char>(group >> 16);
        *to++ = static_cast<char>(group >> 8);
        *to++ = static_cast<char>(group);
    }
    out.advance(count);
}

void copy_line(std::string_view line, Output& out) {
    char* to = out.room(line.size() + 1);
    std::memcpy(to, line.data(), line.size());
    to[line.size()] = '\n';
    out.advance(line.size() + 1);
}

// One message's text, to its end line.
void take_text(Lines& lines, Home& home) {
    std::string_view line;
    while (lines.next(line) && !line.empty()) {}
    Output out(home.new_item("item"));
    bool encoded = false;
    while (lines.next(line) && line != ".") {
        if (line.starts_with('.')) line.remove_prefix(1);
        if (encoded && line == "end")
            encoded = false;
        else if (encoded)
            decode_line(line, out);
        else if (line.starts_with("begin "))
            encoded = true;
        else
            copy_line(line, out);
    }
}

std::size_t number(const char* text) { return static_cast<std::size_t>(std::strtoull(text, nullptr, 10)); }

}  // namespace

int main(int argc, char** argv) {
    char** word = argv + 1;
    char** const end = argv + argc;
    const bool sync = word != end && std::string_view(*word) == "--sync";
    if (sync) ++word;
    const bool parts = end - word > 2 && std::string_view(*word) == "--parts";
    Sizes sizes;
    if (parts) {
        sizes.parts = number(word[1]);
        sizes.part = number(word[2]);
        word += 3;
    }
    const char* path = std::getenv("MORVANE_HOME");
    if (path == nullptr || end - word != 5) {
        std::fputs("usage: MORVANE_HOME=DIR floor [--sync] [--parts COUNT SIZE] MAIN LIST MESSAGE ENTRY AUDIT\n",
                   stderr);
        return 2;
    }
    for (std::size_t* const size : {&sizes.main, &sizes.list, &sizes.message, &sizes.entry, &sizes.audit})
        *size = number(*word++);
    Home home(path, sizes, sync);
    Lines lines;
    write_all(STDOUT_FILENO, "220 floor ready\n");
    for (std::string_view line; lines.next(line);) {
        if (line == "DATA") {
            write_all(STDOUT_FILENO, "354 go on\n");
            if (parts) {
                lines.skip_text();
                home.write_parts();
            } else {
                take_text(lines, home);
            }
            home.write_rest();
        }
        if (line == "QUIT") break;
        write_all(STDOUT_FILENO, "250 ok\n");
    }
    write_all(STDOUT_FILENO, "221 bye\n");
    return 0;
}
