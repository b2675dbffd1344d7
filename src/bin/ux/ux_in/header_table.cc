// The header field table: see header_table.h.
#include "ux_in/header_table.h"

#include <algorithm>
#include <array>
#include <span>

#include "dstring/ascii.h"
#include "tf/record.h"

namespace {

// clang-format off
// Row order decides between rows of the same name; records of type 1100 are written at the end, all fields at once.
constexpr auto ArpaToken = std::to_array<ArpaTokenRow>({
    {"Subject",                          kTokenSubject,          TFREC_subject},
    {"From",                             kTokenFrom,             TFREC_list_from},
    {"To",                               kTokenTo,               TFREC_list_to},
    {"MIME-Version",                     kTokenMimeVersion,      -1},
    {"Sender",                           kTokenSender,           TFREC_list_sender},
    {"Cc",                               kTokenCc,               TFREC_list_cc},
    {"Content-Type",                     kTokenContentType,      -1},
    {"Content-Transfer-Encoding",        kTokenTransferEncoding, -1},
    {"Return-Path",                      kTokenReturnPath,       -1},
    {"Date",                             kTokenDate,             TFREC_creation_date},
    {"Disposition-Notification-To",      kTokenDispositionTo,    -1},
    {"Return-Receipt-To",                kTokenReturnReceiptTo,  -1},
    {"Bcc",                              kTokenBcc,              TFREC_list_bcc},
    {"Reply-To",                         kTokenReplyTo,          TFREC_list_reply_to},
    {"Apparently-To",                    kTokenTo,               TFREC_list_to},
    {"x-ploxen-Hops",                    kTokenHops,             TFREC_header},
    {"Autoforwarded",                    kTokenAutoforwarded,    TFREC_header},
    {"Priority",                         kTokenPriority,         TFREC_header},
    {"X-Priority",                       kTokenPriority,         TFREC_header},
    {"X-MSMail-Priority",                kTokenPriority,         TFREC_header},
    {"Importance",                       kTokenImportance,       TFREC_header},
    {"Sensitivity",                      kTokenSensitivity,      TFREC_header},
    {"Precedence",                       kTokenPrecedence,       TFREC_header},
    {"Deferred-Delivery",                kTokenDeferredDelivery, TFREC_deferred_delivery},
    {"Reply-By",                         kTokenReplyBy,          TFREC_reply_by},
    {"Expiry-Date",                      kTokenExpiryDate,       TFREC_expiry_date},
    {"Message-Id",                       kTokenMessageId,        TFREC_message_id},
    {"In-Reply-To",                      kTokenInReplyTo,        TFREC_in_reply_to},
    {"References",                       kTokenReferences,       TFREC_references},
    {"Obsoletes",                        kTokenObsoletes,        TFREC_obsoletes},
    {"Autoreplied",                      kTokenAutoreplied,      TFREC_header},
    {"x-ploxen-Autoreplied",             kTokenAutoreplied,      TFREC_header},
    {"Latest-Delivery-Time",             kTokenLatestDelivery,   TFREC_latest_delivery},
    {"Originator-Return-Address",        kTokenReturnAddress,    TFREC_originator_return},
    {"X-Lucent-Syncmark",                kTokenSyncmark,         TFREC_header},
    {"x-ploxen-Transport-Id",            kTokenTransportId,      TFREC_message_id},
    {"Encoding",                         kTokenEncoding,         -1},
    {"x-ploxen-PartInfo",                kTokenPartInfo,         -1},
    {"Content-Disposition",              kTokenDisposition,      -1},
    {"x-ploxen-Recipient",               kTokenKept,             -1},
    {"x-ploxen-ehlo",                    kTokenKept,             -1},
    {"x-ploxen-Anonymous-Message",       kTokenKept,             -1},
    {"x-ploxen-Authenticated-Sender",    kTokenKept,             -1},
    {"x-ploxen-Authentication-Mismatch", kTokenKept,             -1},
    {"x-ploxen-Originator",              kTokenKept,             -1},
    {"x-ploxen-Submission-Host",         kTokenKept,             -1},
    {"",                                 kTokenNone,             -1},
});

// Words are tried in order; the first that fits decides.
constexpr auto kPriorityWords = std::to_array<ux_WordValue>({{"Urgent", 2}, {"Non-Urgent", 1}, {"High", 2}, {"Low", 1}});
constexpr auto kImportanceWords = std::to_array<ux_WordValue>({{"High", 2}, {"Low", 1}});
constexpr auto kSensitivityWords = std::to_array<ux_WordValue>({
    {"Personal", 1}, {"Private", 2}, {"Company-Confidential", 3}, {"Company", 3}});
// clang-format on

int word_value(std::span<const ux_WordValue> words, std::string_view value) {
    for (const ux_WordValue& row : words)
        if (dstring_equal_ignoring_case(row.word, value)) return row.value;
    return kUnchanged;
}

}  // namespace

const ArpaTokenRow& find_arpa_token(std::string_view name) {
    const auto end = std::prev(ArpaToken.end());
    if (name.empty()) return *end;
    return *std::find_if(ArpaToken.begin(), end,
                         [&](const ArpaTokenRow& row) { return dstring_equal_ignoring_case(row.pName, name); });
}

// Besides the words of X.400 gateways, the numbers of X-Priority: 1 and 2 are high, 4 and 5 low.
int priority_of(std::string_view value) {
    const int word = word_value(kPriorityWords, value);
    if (word != kUnchanged || value.empty()) return word;
    if (value.front() == '1' || value.front() == '2') return 2;
    if (value.front() == '4' || value.front() == '5') return 1;
    return kUnchanged;
}

int importance_of(std::string_view value) { return word_value(kImportanceWords, value); }
int sensitivity_of(std::string_view value) { return word_value(kSensitivityWords, value); }
