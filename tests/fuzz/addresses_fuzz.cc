// Address lists: a list gives the same records whole and in pieces, splitting takes it apart without loss, what is
// written is a native name, and what is held is bounded.
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "cust/cust.h"
#include "im/im.h"
#include "mim/address.h"
#include "nm/nm.h"
#include "os/os.h"
#include "ux_in/addresses.h"
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
        os_write_all(os_open("~/sys/gateway.toml", O_RDWR | O_CREAT, 0600).get(),
                     "INET_LOCAL_DOMAINS = \"x.org, y\"\n");
        im_make_folders();
        return true;
    }();
    static_cast<void>(made);
}

struct Result {
    std::string records, first_from, sender;
    bool operator==(const Result&) const = default;
};

// Converts the list in pieces of `step` bytes; 0: whole.
Result convert(std::string_view list, std::size_t step) {
    tf_File main = tf_CreateFile(), entries = tf_CreateFile();
    Result result;
    const ux_ArpaListTarget target{main, entries, TFREC_list_from, false, result.first_from, result.sender};
    if (step == 0) {
        ux_InParseArpaList(list, target);
    } else {
        ux_ArpaListParser parser(target);
        for (std::size_t at = 0; at < list.size(); at += step) parser.feed(list.substr(at, step));
        parser.finish();
    }
    tf_Record record;
    tf_UnreadFile(entries);
    while (tf_ReadRecord(entries, record)) {
        const std::string_view name = record.get_string(24);
        require(!name.empty() && name.size() <= kNativeNameLimit);
        require(name.size() == kNativeNameLimit || nm_ParseORN(name).canonical);
        result.records.append(record.bytes());
    }
    return result;
}

// Split after split comes to the end, and only repaired backslashes get lost.
void check_splitting(std::string_view list) {
    while (!list.empty()) {
        const ux_SplitAddress split = splitAddresses(list);
        require(split.advance > 0 && static_cast<std::size_t>(split.advance) <= list.size());
        const std::string_view taken = list.substr(0, static_cast<std::size_t>(split.advance));
        require(split.text.size() <= taken.size());
        if (split.text.size() < taken.size() && taken.find("\\\\\"") == std::string_view::npos)
            require(taken.starts_with(split.text));
        if (split.ppGroupSeparator != std::string::npos) require(split.text[split.ppGroupSeparator] == ':');
        if (split.ppGroupTerminator != std::string::npos) require(split.text[split.ppGroupTerminator] == ';');
        if (split.ppGroupSeparator != std::string::npos) require(split.ppGroupTerminator > split.ppGroupSeparator);
        list.remove_prefix(taken.size());
    }
    require(splitAddresses(list).advance == -1);
}

// An addr-spec reads back as the address that it was made of.
void check_addr_spec(std::string_view text) {
    const mim_Address address = mim_parse_address(text);
    if (address.kind != mim_AddressKind::address) return;
    std::string spec;
    mim_append_addr_spec(spec, address, false);
    const mim_Address again = mim_parse_address("<" + spec + ">");
    require(again.kind == mim_AddressKind::address);
    require(again.localpart == address.localpart && again.domain == address.domain);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    make_home();
    if (size == 0) return 0;
    const std::string_view list(reinterpret_cast<const char*>(data) + 1, size - 1);
    ux_InFreeRecipList();
    ux_InAddArpaRecipToList(list.substr(0, list.find(',')), "", false, false);
    ux_InMakeX400RecipList();
    const Result whole = convert(list, 0);
    require(convert(list, 1) == whole);
    require(convert(list, data[0] + std::size_t{2}) == whole);
    check_splitting(list);
    check_addr_spec(list);
    return 0;
}
