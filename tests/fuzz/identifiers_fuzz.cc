// Message identifiers and transport identifiers: bounds, the characters of the output, one record for each identifier.
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <string_view>

#include "cust/cust.h"
#include "im/im.h"
#include "inet/encoded_name.h"
#include "os/os.h"
#include "ux_in/identifiers.h"
#include "ux_in/recipients.h"

namespace {

void require(bool holds) {
    if (!holds) ::abort();
}

void make_home() {
    static const bool made = [] {
        std::string path = (std::filesystem::temp_directory_path() / "fuzz-home-XXXXXX").string();
        if (::mkdtemp(path.data()) == nullptr) ::abort();
        os_SetHome(path);
        os_mkdirs("~/sys", 0700);
        os_open("~/sys/config", O_RDWR | O_CREAT, 0600);
        im_make_folders();
        return true;
    }();
    static_cast<void>(made);
}

bool printable(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           std::string_view(" '()+-/:=?.,").find(c) != std::string_view::npos;
}

void check_identifier(std::string_view identifier) {
    const std::string converted = ux_InConvMsgId(identifier);
    const std::size_t separator = converted.find(kIdentifierSeparator);
    const std::string_view local = std::string_view(converted).substr(0, separator);
    require(std::all_of(local.begin(), local.end(), printable));
    require(local.size() <= 1064);
    require(ux_InConvMsgId(local) == local);  // printable text without "@" stays as it is
}

void check_records(std::string_view list) {
    for (const std::int32_t type : {TFREC_message_id, TFREC_in_reply_to, TFREC_references}) {
        tf_File file = tf_CreateFile();
        bool had_id = false, had_reply = false;
        ux_InParseMsgIdList(list, {file, type, had_id, had_reply, "", list.size() % 2 == 0, "E"});
        std::size_t records = 0;
        tf_Record record;
        tf_UnreadFile(file);
        while (tf_ReadRecord(file, record)) ++records;
        std::size_t brackets = 0;  // one "<" for each identifier
        for (std::size_t at = list.find('<'); at != std::string_view::npos;) {
            ++brackets;
            const std::size_t close = list.find('>', at);
            at = close == std::string_view::npos ? close : list.find('<', close);
        }
        require(records == (type == TFREC_message_id ? std::min<std::size_t>(brackets, 1) : brackets));
        require(had_id == (type == TFREC_message_id && brackets > 0));
        require(had_reply == (type == TFREC_in_reply_to && brackets > 0));
    }
}

void check_transport(std::string_view text) {
    const auto decoded = ux_InDecodeXportID(text);
    if (!decoded) require(text.find('{') != std::string_view::npos);
    if (decoded) require(decoded->size() <= text.size() && decoded->find('\0') == std::string::npos);
    require(ux_InParseTransportIDList("<" + std::string(text.substr(0, text.find('>'))) + ">") ==
            ux_InDecodeXportID(text.substr(0, text.find('>'))).value_or(""));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    make_home();
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    check_identifier(input);
    check_identifier(std::string(input) + "@MHS");
    check_records(input);
    check_transport(input);
    std::string name;
    require(inet::read_encoded_name(input, name) == !name.empty());
    return 0;
}
