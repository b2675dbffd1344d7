// Descriptors of iconv(3), opened on first use and kept for the next text of the same pair. A line of text is
// converted in less time than a descriptor takes to open.
#pragma once

#include <iconv.h>

#include <string>

// A descriptor on loan: goes back to the pool, reset, at the end of its life.
class IconvLoan {
public:
    IconvLoan() = default;
    // Empty when there is no such conversion.
    IconvLoan(const std::string& to, const std::string& from);
    IconvLoan(IconvLoan&& other) noexcept;
    IconvLoan& operator=(IconvLoan&& other) noexcept;
    ~IconvLoan();
    explicit operator bool() const { return slot_ >= 0; }
    iconv_t get() const;

private:
    int slot_ = -1;
};

void reset_iconv_pool();  // closes what is not on loan; for tests
