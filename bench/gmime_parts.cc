// What a program on GMime 3 takes for mails: its input file is mapped, each mail is parsed where it lies, and each leaf
// part, however deep in multiparts, is streamed, decoded, into a file of its own.
//
//   gmime_parts [--utf8] MAILS FOLDER      MAILS: "<size in bytes>\n<mail>" again and again
//
// --utf8 turns text with a charset parameter into UTF-8 on its way.
#include <fcntl.h>
#include <gmime/gmime.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

struct Output {
    std::string folder;
    bool utf8 = false;
    unsigned written = 0;
};

[[noreturn]] void fail(const char* what) {
    std::perror(what);
    std::exit(2);
}

GMimeStream* new_file(Output& output) {
    const std::string path = output.folder + "/" + std::to_string(output.written++);
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) fail(path.c_str());
    return g_mime_stream_fs_new(fd);
}

// The stream with a converter before it, when the part's text is to be converted and can be.
GMimeStream* converting(GMimeStream* stream, GMimeObject* part) {
    const char* charset = g_mime_object_get_content_type_parameter(part, "charset");
    if (!GMIME_IS_TEXT_PART(part) || charset == nullptr) return stream;
    GMimeFilter* filter = g_mime_filter_charset_new(charset, "utf-8");
    if (filter == nullptr) return stream;
    GMimeStream* filtered = g_mime_stream_filter_new(stream);
    g_mime_stream_filter_add(GMIME_STREAM_FILTER(filtered), filter);
    g_object_unref(filter);
    g_object_unref(stream);
    return filtered;
}

void write_part(GMimeObject*, GMimeObject* part, gpointer data) {
    if (!GMIME_IS_PART(part)) return;
    GMimeDataWrapper* content = g_mime_part_get_content(GMIME_PART(part));
    if (content == nullptr) return;
    auto& output = *static_cast<Output*>(data);
    GMimeStream* stream = new_file(output);
    if (output.utf8) stream = converting(stream, part);
    if (g_mime_data_wrapper_write_to_stream(content, stream) < 0 || g_mime_stream_flush(stream) != 0) fail("a part");
    g_object_unref(stream);
}

void take_mail(GMimeStream* mails, gint64 begin, gint64 end, Output& output) {
    GMimeStream* stream = g_mime_stream_substream(mails, begin, end);
    GMimeParser* parser = g_mime_parser_new_with_stream(stream);
    g_object_unref(stream);
    GMimeMessage* message = g_mime_parser_construct_message(parser, nullptr);
    g_object_unref(parser);
    if (message == nullptr) return;
    GMimeObject* top = g_mime_message_get_mime_part(message);
    if (GMIME_IS_MULTIPART(top))
        g_mime_multipart_foreach(GMIME_MULTIPART(top), write_part, &output);
    else if (top != nullptr)
        write_part(nullptr, top, &output);
    g_object_unref(message);
}

}  // namespace

int main(int argc, char** argv) {
    const bool utf8 = argc > 1 && std::string_view(argv[1]) == "--utf8";
    if (argc != (utf8 ? 4 : 3)) {
        std::fputs("usage: gmime_parts [--utf8] MAILS FOLDER\n", stderr);
        return 2;
    }
    g_mime_init();
    const int fd = ::open(argv[argc - 2], O_RDONLY | O_CLOEXEC);
    struct stat info {};
    if (fd < 0 || ::fstat(fd, &info) != 0) fail(argv[argc - 2]);
    GMimeStream* mails = g_mime_stream_mmap_new(fd, PROT_READ, MAP_PRIVATE);
    if (mails == nullptr) fail("mapping the mails");
    const char* const text = GMIME_STREAM_MMAP(mails)->map;
    Output output{argv[argc - 1], utf8};
    for (gint64 at = 0; at < info.st_size;) {
        char* begin = nullptr;
        const auto size = static_cast<gint64>(std::strtoull(text + at, &begin, 10));
        at = begin + 1 - text;  // behind the line feed
        take_mail(mails, at, at + size, output);
        at += size;
    }
    g_object_unref(mails);
    g_mime_shutdown();
    return 0;
}
