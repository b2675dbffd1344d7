// The envelope recipients of the message in hand, and the conversion of one Internet address into a native name.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "mim/mapping.h"

// Addresses of this many characters are not converted.
inline constexpr std::size_t kAddressTooLong = 1025;

// One envelope recipient.
struct RecipientInfo {
    int Category = 3;                       // 0 From, 1 To and any other field, 2 Cc, 3 Bcc or not named in any field
    bool NoNDNWanted = false;               // NOTIFY: no non-delivery notification
    bool DelAckWanted = false;              // NOTIFY: delivery notification
    std::string pArpaRecip;                 // as given in RCPT TO
    std::string pOrigRecip;                 // never filled by this list
    std::optional<std::string> pX400Recip;  // native name, once converted; none when the address has none
    bool updated = false;                   // a header field has set the category
};

// The list's storage: blocks of 64 entries that never move, so that growing costs the same for the last recipient as
// for the first. `size()` is how many entries may be put in before it has to grow; blocks are made as they fill.
class ux_RecipientList {
public:
    static constexpr std::size_t kStep = 64;

    template <class List, class Entry>
    class Walk {
    public:
        Walk(List* list, std::size_t at) : list_(list), at_(at) {}
        Entry& operator*() const { return (*list_)[at_]; }
        Walk& operator++() {
            ++at_;
            return *this;
        }
        bool operator==(const Walk&) const = default;

    private:
        List* list_;
        std::size_t at_;
    };

    std::size_t count() const { return count_; }  // gRecipListCount
    std::size_t size() const { return size_; }    // gRecipListSize
    bool exists() const { return !blocks_.empty(); }
    RecipientInfo& operator[](std::size_t i) { return (*blocks_[i / kStep])[i % kStep]; }
    const RecipientInfo& operator[](std::size_t i) const { return (*blocks_[i / kStep])[i % kStep]; }
    auto begin() { return Walk<ux_RecipientList, RecipientInfo>(this, 0); }
    auto end() { return Walk<ux_RecipientList, RecipientInfo>(this, count_); }
    auto begin() const { return Walk<const ux_RecipientList, const RecipientInfo>(this, 0); }
    auto end() const { return Walk<const ux_RecipientList, const RecipientInfo>(this, count_); }

    void grow();              // room for kStep more; throws std::bad_alloc and is as it was
    RecipientInfo& append();  // the next entry, as made; there must be room; throws std::bad_alloc
    void drop();              // drops the entries and their storage; size() stays

private:
    void make_block_for(std::size_t entry);

    std::vector<std::unique_ptr<std::array<RecipientInfo, kStep>>> blocks_;
    std::size_t count_ = 0, size_ = 0;
};

// Which entries have which native name, in the order of the list: how a header field's recipient is found.
struct ux_RecipientIndex {
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view key) const;
    };
    struct Chain {
        std::size_t head, tail;
    };
    std::unordered_map<std::string, Chain, Hash, std::equal_to<>> names;  // by nm_key
    std::vector<std::size_t> next;                                        // of each entry, in its chain
    std::size_t indexed = 0;                                              // entries of the list that it knows
    std::string key;                                                      // of the name in hand
};

// Process-wide: the list and what belongs to it.
struct ux_RecipientState {
    ux_RecipientList gRecipList;
    ux_RecipientIndex index;
    bool G_Relaying = false;           // every recipient routes back to this gateway
    std::optional<bool> IncludeGp5Ia;  // once decided (GotNoIaTweak): the Internet address goes into names
};
ux_RecipientState& ux_recipients();
void ux_reset_recipients();

// Process-wide: the directory session and name mapping.
using ux_DirectoryState = mim_Mapping;
ux_DirectoryState& ux_directory();
void ux_reset_directory();

// Process-wide: the audit transaction of the message being converted.
struct ux_AuditState {
    int AuditHandle = -1;
};
ux_AuditState& ux_audit();
void ux_reset_audit();

// Appends a recipient. pOrigRcpt is accepted and not kept: the original recipient given by ORCPT does not reach the
// recipient records. Raises the system group's ENOMEM when the list cannot grow.
void ux_InAddArpaRecipToList(std::string_view pArpaRecip, std::string_view pOrigRcpt, bool NoNDNWanted,
                             bool DelAckWanted);

// Makes room for 64 more recipients. False: there is no memory, and nothing has changed.
bool ux_InGrowRecipList();

// Frees the list. Its size stays as it was, so the next list of the session has room for 64 more than this one.
void ux_InFreeRecipList();

// Converts every recipient's address into a native name; those that have none are left without. Clears G_Relaying when
// a name does not route back to this gateway.
void ux_InMakeX400RecipList();

// Sets the category of the first recipient, in list order, that has the native name and whose category no header field
// has set. Category 0 (From) is ignored. The cost does not depend on the number of recipients.
void ux_InUpdateRecipCategory(std::string_view pDLName, int Category);

// Converts one Internet address (RFC 5322) into a native name, with the address itself in field 130 unless
// INET_NO_IA_IN_ORN (the key, else the environment variable) forbids that. The result is that of
// inet_uxConvArpaORNToORN; 0 with both texts empty when the address cannot be read or has 1,025 characters or more
// (then it is logged: 102/1505 and 102/1418, level 7). An address with 8-bit or control bytes becomes its addr-spec.
int ux_InConvArpaORNToORN(std::string& pArpaORN, std::string& pORN, bool RecipTo);

namespace ux {
// Does the Internet address go into native names? INET_NO_IA_IN_ORN decides, once a process.
bool internet_address_wanted();
}  // namespace ux

// Is the sender null: no name, "<>", or an empty local part? *pIsMailerDaemon, when given, tells whether the local part
// begins "MAILER-DAEMON", in capitals.
bool ux_IsNullName(std::string_view pName, bool* pIsMailerDaemon);
