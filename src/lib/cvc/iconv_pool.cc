// The pool of iconv(3) descriptors: see iconv_pool.h. Pairs that do not exist are remembered too: mail that names an
// unknown set names it in every line. Names come from outside, so the pool is bounded.
#include "cvc/iconv_pool.h"

#include <array>
#include <utility>

namespace {

constexpr int kSlots = 32;
// What iconv_open returns when there is no such conversion.
iconv_t none() { return reinterpret_cast<iconv_t>(-1); }

struct Slot {
    std::string to, from;
    iconv_t descriptor = none();
    bool used = false;  // the names are set: a descriptor, or the knowledge that there is none
    bool lent = false;
    unsigned long last_use = 0;
};

struct Pool {
    std::array<Slot, kSlots> slots;
    unsigned long clock = 0;
    ~Pool() {
        for (Slot& slot : slots)
            if (slot.descriptor != none()) iconv_close(slot.descriptor);
    }
};

Pool& pool() {
    static Pool the_pool;
    return the_pool;
}

void empty(Slot& slot) {
    if (slot.descriptor != none()) iconv_close(slot.descriptor);
    slot = Slot{};
}

int find(const std::string& to, const std::string& from) {
    const auto& slots = pool().slots;
    for (int at = 0; at < kSlots; ++at)
        if (slots[at].used && !slots[at].lent && slots[at].to == to && slots[at].from == from) return at;
    return -1;
}

// A slot for a new pair: an unused one, else the one not on loan that was used longest ago; -1 when all are on loan.
int make_room() {
    auto& slots = pool().slots;
    int best = -1;
    for (int at = 0; at < kSlots; ++at) {
        if (slots[at].lent) continue;
        if (!slots[at].used) return at;
        if (best < 0 || slots[at].last_use < slots[best].last_use) best = at;
    }
    if (best >= 0) empty(slots[best]);
    return best;
}

}  // namespace

IconvLoan::IconvLoan(const std::string& to, const std::string& from) {
    int at = find(to, from);
    if (at < 0) {
        at = make_room();
        if (at < 0) return;
        pool().slots[at] = Slot{to, from, iconv_open(to.c_str(), from.c_str()), true, false, 0};
    }
    Slot& slot = pool().slots[at];
    slot.last_use = ++pool().clock;
    if (slot.descriptor == none()) return;
    slot.lent = true;
    slot_ = at;
}

IconvLoan::IconvLoan(IconvLoan&& other) noexcept : slot_(std::exchange(other.slot_, -1)) {}

IconvLoan& IconvLoan::operator=(IconvLoan&& other) noexcept {
    std::swap(slot_, other.slot_);
    return *this;
}

IconvLoan::~IconvLoan() {
    if (slot_ < 0) return;
    Slot& slot = pool().slots[slot_];
    iconv(slot.descriptor, nullptr, nullptr, nullptr, nullptr);
    slot.lent = false;
}

iconv_t IconvLoan::get() const { return pool().slots[slot_].descriptor; }

void reset_iconv_pool() {
    for (Slot& slot : pool().slots)
        if (!slot.lent) empty(slot);
}
