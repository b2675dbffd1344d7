// What a program on GMime 3 takes for small mails: each is parsed from memory, and each of its leaf parts is streamed,
// decoded, into a file of its own.
//
//   gmime_small MAILS FOLDER      MAILS: "<size in bytes>\n<mail>" again and again
#include <fcntl.h>
#include <gmime/gmime.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

namespace {

struct Output {
    std::string folder;
    unsigned written = 0;
};

void write_part(GMimeObject*, GMimeObject* part, gpointer data) {
    if (!GMIME_IS_PART(part)) return;
    GMimeDataWrapper* content = g_mime_part_get_content(GMIME_PART(part));
    if (content == nullptr) return;
    auto& output = *static_cast<Output*>(data);
    const std::string path = output.folder + "/" + std::to_string(output.written++);
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) {
        std::perror(path.c_str());
        std::exit(2);
    }
    GMimeStream* stream = g_mime_stream_fs_new(fd);
    g_mime_data_wrapper_write_to_stream(content, stream);
    g_object_unref(stream);
}

void take_mail(const char* text, std::size_t size, Output& output) {
    GMimeStream* stream = g_mime_stream_mem_new_with_buffer(text, size);
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
    if (argc != 3) {
        std::fputs("usage: gmime_small MAILS FOLDER\n", stderr);
        return 2;
    }
    g_mime_init();
    std::ifstream file(argv[1], std::ios::binary);
    const std::string mails(std::istreambuf_iterator<char>(file), {});
    Output output{argv[2]};
    for (std::size_t at = 0; at < mails.size();) {
        char* text = nullptr;
        const std::size_t size = std::strtoull(mails.data() + at, &text, 10);
        ++text;  // the line feed
        take_mail(text, size, output);
        at = static_cast<std::size_t>(text - mails.data()) + size;
    }
    g_mime_shutdown();
    return 0;
}
