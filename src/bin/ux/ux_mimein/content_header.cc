// Content headers: see content_header.h.
#include "ux_mimein/content_header.h"

#include <algorithm>
#include <array>

#include "dstring/ascii.h"
#include "er/er.h"
#include "mim/mim.h"
#include "ux_in/commands.h"
#include "ux_mimein/mail_input.h"

namespace {

constexpr int kHeaderNotWritten = 1411;
constexpr std::size_t kValueLimit = 1023;

struct ContentTokenType {
    std::string_view pName;
    int Num;
    std::string ux_ContentHeader::*value;  // none: the field is only kept in the header item
};

// clang-format off
constexpr auto ContentToken = std::to_array<ContentTokenType>({
    {"Content-Type",              1, &ux_ContentHeader::pszSubPartType},
    {"Content-Transfer-Encoding", 2, &ux_ContentHeader::pszSubPartEncoding},
    {"Content-Disposition",       3, &ux_ContentHeader::pszContentDisposition},
    {"Content-ID",                4, &ux_ContentHeader::szContentID},
    {"Content-Description",       5, nullptr},
    {"Content-MD5",               6, nullptr},
    {"Content-Location",          7, &ux_ContentHeader::szContentLocation},
    {"",                         -1, nullptr},
});
// clang-format on
constexpr int kContentId = 4;

const ContentTokenType& find_token(std::string_view name) {
    const auto end = std::prev(ContentToken.end());
    if (name.empty()) return *end;
    return *std::find_if(ContentToken.begin(), end,
                         [&](const auto& row) { return dstring_equal_ignoring_case(row.pName, name); });
}

// An identifier stands between "<" and ">", which may come on a continuation line; without a "<" there is none.
void take_content_id(std::string_view argument, im_Item& HeaderItem, std::string& szContentID) {
    const std::size_t open = argument.find('<');
    if (open == std::string_view::npos) return;
    szContentID = mim_SpaceTrimming(argument.substr(open + 1)).substr(0, kValueLimit);
    GetContinuation(szContentID, &HeaderItem);
    szContentID.resize(std::min(szContentID.find('>'), szContentID.size()));
}

void take_field(const ux_KeywordLine& field, im_Item& HeaderItem, ux_ContentHeader& header) {
    const ContentTokenType& token = find_token(field.pCommand);
    if (token.value == nullptr) return;
    std::string& value = header.*token.value;
    if (token.Num == kContentId) return take_content_id(field.pArgument, HeaderItem, value);
    value = mim_SpaceTrimming(field.pArgument).substr(0, kValueLimit);
    GetContinuation(value, &HeaderItem);
}

}  // namespace

void ux_InParseContentHeader(im_Item& HeaderItem, bool& pbEndOfMsg, ux_ContentHeader& header) {
    const er_Trace trace("ux_InParseContentHeader");
    std::string line;
    for (;;) {
        const ux_MailText piece = GetMailText();
        if (piece.is_end) {
            pbEndOfMsg = true;
            return;
        }
        if (piece.is_blank()) return;
        line = piece.unstuffed();  // the piece is gone once a continuation line is looked for
        ux_write_or_escape(HeaderItem, line, kHeaderNotWritten);
        ux_write_or_escape(HeaderItem, "\r\n", kHeaderNotWritten);
        if (const ux_KeywordLine field = ux_InParseCommandLine(line); field.found)
            take_field(field, HeaderItem, header);
    }
}
