// Envelope recipients and the conversion of addresses: see recipients.h.
#include "ux_in/recipients.h"

#include <stdlib.h>

#include <cerrno>
#include <new>

#include "cust/cust.h"
#include "er/er.h"
#include "inet/address.h"
#include "mim/address.h"
#include "nm/nm.h"

namespace {

constexpr int kLogAddress = 1505;
constexpr int kLogTooLong = 1418;
constexpr int kFromCategory = 0;
constexpr std::string_view kMailerDaemon = "MAILER-DAEMON";
constexpr const char* kNoInternetAddress = "INET_NO_IA_IN_ORN";
constexpr std::size_t kNone = static_cast<std::size_t>(-1);

// Puts entry `at` behind those of the same name.
void index_entry(ux_RecipientIndex& index, const RecipientInfo& entry, std::size_t at) {
    index.next.push_back(kNone);
    if (!entry.pX400Recip) return;
    nm_key(*entry.pX400Recip, index.key);
    const auto [chain, is_new] = index.names.try_emplace(index.key, ux_RecipientIndex::Chain{at, at});
    if (is_new) return;
    index.next[chain->second.tail] = at;
    chain->second.tail = at;
}

void complete_index(ux_RecipientState& state) {
    if (state.index.indexed == state.gRecipList.count()) return;
    state.index.names.reserve(state.gRecipList.count());
    for (; state.index.indexed < state.gRecipList.count(); ++state.index.indexed)
        index_entry(state.index, state.gRecipList[state.index.indexed], state.index.indexed);
}

}  // namespace

std::size_t ux_RecipientIndex::Hash::operator()(std::string_view key) const { return nm_hash(key); }

void ux_RecipientList::grow() {
    make_block_for(count_);
    size_ += kStep;
}

RecipientInfo& ux_RecipientList::append() {
    make_block_for(count_);
    return (*this)[count_++];
}

void ux_RecipientList::make_block_for(std::size_t entry) {
    if (entry / kStep < blocks_.size()) return;
    auto block = std::make_unique<std::array<RecipientInfo, kStep>>();
    blocks_.push_back(std::move(block));
}

void ux_RecipientList::drop() {
    blocks_.clear();
    blocks_.shrink_to_fit();
    count_ = 0;
}

ux_RecipientState& ux_recipients() {
    static ux_RecipientState state;
    return state;
}

// The key decides when it is set; the environment otherwise.
bool ux::internet_address_wanted() {
    std::optional<bool>& decided = ux_recipients().IncludeGp5Ia;
    if (!decided) {
        const char* variable = ::getenv(kNoInternetAddress);
        const bool no_by_variable = variable != nullptr && (*variable == 't' || *variable == 'T');
        decided = !cust_PresentAndTrue(kNoInternetAddress) && !no_by_variable;
    }
    return *decided;
}

void ux_reset_recipients() { ux_recipients() = ux_RecipientState(); }

ux_DirectoryState& ux_directory() {
    static ux_DirectoryState state;
    return state;
}

void ux_reset_directory() { ux_directory() = ux_DirectoryState(); }

ux_AuditState& ux_audit() {
    static ux_AuditState state;
    return state;
}

void ux_reset_audit() { ux_audit() = ux_AuditState(); }

void ux_InAddArpaRecipToList(std::string_view pArpaRecip, std::string_view /*pOrigRcpt*/, bool NoNDNWanted,
                             bool DelAckWanted) {
    const er_Trace trace("ux_InAddArpaRecipToList");
    ux_RecipientList& list = ux_recipients().gRecipList;
    const bool full = !list.exists() || list.count() >= list.size();
    if (full && !ux_InGrowRecipList()) er_SystemEscape(ENOMEM, "recipient list");
    er_Translate([&] {
        std::string address(pArpaRecip);
        RecipientInfo& entry = list.append();
        entry.pArpaRecip = std::move(address);
        entry.NoNDNWanted = NoNDNWanted;
        entry.DelAckWanted = DelAckWanted;
    });
}

bool ux_InGrowRecipList() {
    const er_Trace trace("ux_InGrowRecipList");
    try {
        ux_recipients().gRecipList.grow();
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

void ux_InFreeRecipList() {
    const er_Trace trace("ux_InFreeRecipList");
    ux_recipients().gRecipList.drop();
    ux_recipients().index = {};
}

void ux_InMakeX400RecipList() {
    const er_Trace trace("ux_InMakeX400RecipList");
    ux_RecipientState& state = ux_recipients();
    state.index = {};
    std::string address, name;
    for (RecipientInfo& entry : state.gRecipList) {
        address = entry.pArpaRecip;  // the conversion may change it
        ux_InConvArpaORNToORN(address, name, false);
        if (name.empty()) continue;
        entry.pX400Recip = name;
        if (!mim_RoutableToUnix(name)) state.G_Relaying = false;
    }
}

void ux_InUpdateRecipCategory(std::string_view pDLName, int Category) {
    const er_Trace trace("ux_InUpdateRecipCategory");
    if (Category == kFromCategory) return;
    ux_RecipientState& state = ux_recipients();
    complete_index(state);
    if (state.index.names.empty()) return;
    nm_key(pDLName, state.index.key);
    const auto chain = state.index.names.find(std::string_view(state.index.key));
    if (chain == state.index.names.end()) return;
    std::size_t& head = chain->second.head;
    while (state.gRecipList[head].updated) {
        if (state.index.next[head] == kNone) return;
        head = state.index.next[head];
    }
    state.gRecipList[head].Category = Category;
    state.gRecipList[head].updated = true;
}

int ux_InConvArpaORNToORN(std::string& pArpaORN, std::string& pORN, bool RecipTo) {
    const er_Trace trace("ux_InConvArpaORNToORN");
    const bool IncludeGp5Ia = ux::internet_address_wanted();
    if (pArpaORN.size() >= kAddressTooLong) {
        er_LogMsg(7, kGatewayGroup, kLogAddress, pArpaORN);
        er_LogMsg(7, kGatewayGroup, kLogTooLong);
        pArpaORN.clear();
        pORN.clear();
        return 0;
    }
    const int result = inet_uxConvArpaORNToORN(pArpaORN, pORN, RecipTo, ux_directory(), IncludeGp5Ia);
    if (IncludeGp5Ia && !pORN.empty()) {
        // As the address was given; only one with 8-bit or control bytes was changed by the conversion.
        NM_PARSE_STATUS status = nm_ParseORN(pORN);
        nm_PutFieldStr(pORN, status, kNmInternetAddress, pArpaORN);
    }
    return result;
}

bool ux_IsNullName(std::string_view pName, bool* pIsMailerDaemon) {
    const er_Trace trace("ux_IsNullName");
    if (pIsMailerDaemon != nullptr) *pIsMailerDaemon = false;
    if (pName.empty() || pName == "<>") return true;
    const mim_Address address = mim_parse_address(pName);
    if (pIsMailerDaemon != nullptr) *pIsMailerDaemon = address.localpart.starts_with(kMailerDaemon);
    return address.localpart.empty();
}
