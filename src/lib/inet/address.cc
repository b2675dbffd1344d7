// Internet addresses into native names.
#include "inet/address.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "cust/cust.h"
#include "cvc/utf8.h"
#include "dr/dr.h"
#include "er/er.h"
#include "inet/encoded_name.h"
#include "mim/address.h"
#include "mim/encoded_words.h"
#include "mim/mim.h"
#include "nm/nm.h"
#include "os/os.h"

namespace {

constexpr int kSharedWarning = 24071;

// What is looked up once a process: our domains, in lower case and sorted.
struct State {
    std::optional<std::vector<std::string>> local_domains;
};
State& state() {
    static State one;
    return one;
}

void lower(std::string& text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
}

std::vector<std::string> read_local_domains() {
    std::vector<std::string> domains;
    const auto add = [&](std::string_view name) {
        if (name.empty()) return;
        domains.emplace_back(name);
        lower(domains.back());
    };
    if (const auto setting = cust_GetCustomiseInfo("INET_LOCAL_DOMAINS")) {
        for (std::string_view rest = *setting; !rest.empty();) {
            const std::size_t comma = std::min(rest.find(','), rest.size());
            add(mim_SpaceTrimming(rest.substr(0, comma)));
            rest.remove_prefix(std::min(comma + 1, rest.size()));
        }
    } else {
        add(os_canonical_host_name());
    }
    std::sort(domains.begin(), domains.end());
    return domains;
}

bool is_local(const std::string& lower_domain) {
    State& all = state();
    if (!all.local_domains) all.local_domains = read_local_domains();
    return std::binary_search(all.local_domains->begin(), all.local_domains->end(), lower_domain);
}

// How a character stands in a printable string: as it is (0), as "(" letter ")", or as "(" three digits ")".
constexpr char kAsItIs = 0;
constexpr char kDigits = 1;

constexpr std::array<char, 256> make_printable() {
    std::array<char, 256> codes{};
    codes.fill(kDigits);
    for (unsigned char c = 'A'; c <= 'Z'; ++c) codes[c] = kAsItIs;
    for (unsigned char c = 'a'; c <= 'z'; ++c) codes[c] = kAsItIs;
    for (unsigned char c = '0'; c <= '9'; ++c) codes[c] = kAsItIs;
    for (const char c : {' ', '\'', '+', ',', '-', '.', '/', ':', '=', '?'})
        codes[static_cast<unsigned char>(c)] = kAsItIs;
    codes['@'] = 'a';
    codes['%'] = 'p';
    codes['!'] = 'b';
    codes['"'] = 'q';
    codes['_'] = 'u';
    codes['('] = 'l';
    codes[')'] = 'r';
    return codes;
}
constexpr auto kPrintable = make_printable();

void add_printable(nm_Writer& name, std::string_view text) {
    while (!text.empty()) {
        std::size_t run = 0;
        while (run < text.size() && kPrintable[static_cast<unsigned char>(text[run])] == kAsItIs) ++run;
        name.add(text.substr(0, run));
        if (run == text.size()) return;
        const auto byte = static_cast<unsigned char>(text[run]);
        const char code = kPrintable[byte];
        const std::array<char, 5> digits{'(', static_cast<char>('0' + byte / 100),
                                         static_cast<char>('0' + byte / 10 % 10), static_cast<char>('0' + byte % 10),
                                         ')'};
        const std::array<char, 3> letter{'(', code, ')'};
        name.add(code == kDigits ? std::string_view(digits.data(), digits.size())
                                 : std::string_view(letter.data(), letter.size()));
        text.remove_prefix(run + 1);
    }
}

// Bytes that are not UTF-8 become the characters of their Latin-1 codes: names that were sent without encoding.
std::string as_utf8(std::string_view text) {
    std::string out;
    for (;;) {
        const std::size_t valid = check_utf8(text).valid;
        out.append(text.substr(0, valid));
        if (valid == text.size()) return out;
        append_utf8(out, static_cast<unsigned char>(text[valid]));
        text.remove_prefix(valid + 1);
    }
}

// The display name for CN: decoded, without what a native name cannot hold.
std::string display_name(mim_Address& address) {
    std::string name = std::move(address.phrase.empty() ? address.comment : address.phrase);
    if (name.empty()) return name;
    if (name.find("=?") != std::string::npos) name = mim_DecodeMimeCharStr(name);
    std::replace(name.begin(), name.end(), '\0', ' ');
    if (!inet_is_plain_text(name)) name = as_utf8(name);
    const std::string_view trimmed = mim_SpaceTrimming(name);
    if (trimmed.size() != name.size()) name = std::string(trimmed);
    return name;
}

std::string addr_spec(const mim_Address& address) {
    std::string text;
    mim_append_addr_spec(text, address, false);
    return text;
}

// A name that came from elsewhere, with our display name where it has none.
void finish_given_name(std::string& name, std::string_view display, bool keep_internet_address) {
    NM_PARSE_STATUS status = nm_ParseORN(name);
    if (!nm_has_field(status, kNmCommonName)) nm_PutFieldStr(name, status, kNmCommonName, display);
    if (!keep_internet_address) nm_PutFieldStr(name, status, kNmInternetAddress, {});
}

// Rule 1.
bool mapped_name(const mim_Address& address, const mim_Mapping& mapping, std::string& name) {
    if (!mapping.MapConfigOn) return false;
    auto found = dr_find_name(mapping.MapDirHandle, mapping.MapAttribId, addr_spec(address));
    if (!found) return false;
    name = *std::move(found);
    return true;
}

// Rule 3. `address` has its domain in lower case.
void local_name(const mim_Address& address, std::string_view display, std::string& name) {
    const std::string_view local = address.localpart;
    const std::size_t dot = local.find('.');
    const bool two_parts = dot != std::string_view::npos && dot > 0 && dot + 1 < local.size() &&
                           local.find('.', dot + 1) == std::string_view::npos;
    nm_Writer out(name);
    out.put(kNmOrganisation, address.domain);
    out.put(kNmSurname, two_parts ? local.substr(dot + 1) : local);
    if (two_parts) out.put(kNmGivenName, local.substr(0, dot));
    out.put(kNmCommonName, display);
    out.finish();
}

// Rule 4.
void foreign_name(const mim_Address& address, std::string_view display, std::string& name) {
    nm_Writer out(name);
    out.put(kNmCommonName, display);
    out.begin(kNmRfc822);
    add_printable(out, addr_spec(address));
    out.finish();
}

void name_of(mim_Address& address, const mim_Mapping& mapping, bool IncludeGp5Ia, std::string& name) {
    const std::string display = display_name(address);
    if (mapped_name(address, mapping, name)) return finish_given_name(name, display, IncludeGp5Ia);
    if (inet::read_encoded_name(address.localpart, name)) return finish_given_name(name, display, true);
    lower(address.domain);
    if (address.domain.empty() || is_local(address.domain))
        local_name(address, display, name);
    else
        foreign_name(address, display, name);
}

}  // namespace

int inet_uxConvArpaORNToORN(std::string& pArpaORN, std::string& pORN, bool /*RecipTo*/, const mim_Mapping& mapping,
                            bool IncludeGp5Ia) {
    pORN.clear();
    pArpaORN.resize(std::min(pArpaORN.find('\0'), pArpaORN.size()));  // a name cannot hold one
    mim_Address address = mim_parse_address(pArpaORN);
    if (address.kind == mim_AddressKind::address) {
        std::string bare;
        if (!inet_is_plain_text(pArpaORN)) bare = addr_spec(address);
        name_of(address, mapping, IncludeGp5Ia, pORN);
        if (!bare.empty()) pArpaORN = std::move(bare);
    } else if (address.kind == mim_AddressKind::words) {
        nm_Writer out(pORN);
        out.put(kNmCommonName, display_name(address));
        out.finish();
    }
    if (!pORN.empty()) return 1;
    const std::string_view text = mim_SpaceTrimming(pArpaORN);
    if (!text.empty() && text != "<>")
        er_LogMsg(9, kSharedGroup, kSharedWarning, "inet_uxConvArpaORNToORN: unreadable='", pArpaORN, "'");
    pArpaORN.clear();
    return 0;
}

bool inet_is_local_domain(std::string_view domain) {
    std::string wanted(domain);
    lower(wanted);
    return is_local(wanted);
}

void inet_reset() { state() = State(); }

bool inet_is_plain_text(std::string_view text) {
    return std::none_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte >= 0x7F;
    });
}

std::string inet_RemoveBrackets(std::string_view text) {
    std::string out;
    std::copy_if(text.begin(), text.end(), std::back_inserter(out), [](char c) { return c != '[' && c != ']'; });
    return out;
}

std::string inet_RemoveAngleBrackets(std::string_view text) {
    const std::size_t open = text.find('<'), close = text.find('>');
    const bool one_pair =
        open < close && close != std::string_view::npos && open == text.rfind('<') && close == text.rfind('>');
    if (one_pair) return std::string(text.substr(open + 1, close - open - 1));
    std::string out;
    std::copy_if(text.begin(), text.end(), std::back_inserter(out), [](char c) { return c != '<' && c != '>'; });
    return out;
}

std::string inet_ReplaceBadHeaderChars(std::string_view line, int /*mode*/) {
    std::string out(line);
    for (char& c : out)
        if (!inet_is_plain_text({&c, 1})) c = '?';
    return out;
}
