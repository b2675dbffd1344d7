// The header fields that the gateway knows: their token numbers, which choose what is done, and the record types that
// they write. Shared by the headers of messages and of messages inside messages.
#pragma once

#include <cstdint>
#include <string_view>

// Token numbers.
enum ux_HeaderToken : std::int32_t {
    kTokenNone = -1,
    kTokenSubject = 1,
    kTokenFrom = 2,
    kTokenTo = 3,
    kTokenCc = 4,
    kTokenBcc = 5,
    kTokenReplyTo = 6,
    kTokenHops = 7,
    kTokenAutoforwarded = 8,
    kTokenPriority = 9,
    kTokenImportance = 10,
    kTokenSensitivity = 11,
    kTokenDate = 12,
    kTokenDeferredDelivery = 13,
    kTokenReplyBy = 14,
    kTokenExpiryDate = 15,
    kTokenMessageId = 16,
    kTokenInReplyTo = 17,
    kTokenReferences = 18,
    kTokenObsoletes = 19,
    kTokenAutoreplied = 20,
    kTokenSender = 21,
    kTokenLatestDelivery = 22,
    kTokenReturnAddress = 23,
    kTokenMimeVersion = 24,
    kTokenEncoding = 25,
    kTokenPartInfo = 26,
    kTokenContentType = 27,
    kTokenTransferEncoding = 28,
    kTokenPrecedence = 29,
    kTokenSyncmark = 30,
    kTokenReturnPath = 31,
    kTokenTransportId = 32,
    kTokenDispositionTo = 33,
    kTokenReturnReceiptTo = 34,
    kTokenDisposition = 35,
    kTokenKept = 36,  // our own informational fields: known only so that they are kept in the saved header
};

struct ArpaTokenRow {
    std::string_view pName;
    std::int32_t Num;
    std::int32_t TFRec;  // record type to write, -1 where the field writes none of its own
};

// The first row whose name equals `name`, whatever its case; a row of {"", -1, -1} when there is none. The name is
// compared as it stands before the colon: "Subject " is unknown.
const ArpaTokenRow& find_arpa_token(std::string_view name);

// Values that several fields share, any case. Nothing: the value says nothing, what was there stays.
struct ux_WordValue {
    std::string_view word;
    int value;
};
constexpr int kUnchanged = -1;
int priority_of(std::string_view value);     // 0 is never given; 1 non-urgent, 2 urgent, or kUnchanged
int importance_of(std::string_view value);   // 1 low, 2 high, or kUnchanged
int sensitivity_of(std::string_view value);  // 1 personal, 2 private, 3 company confidential, or kUnchanged
