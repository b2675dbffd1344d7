// Conversion of strings and items between character sets. Sets are given by any name that ccs knows; a name that it
// does not know may still be one of iconv's.
//
// A conversion's result is 0 when every character was converted, 1 when some were replaced by "?"; any other
// number: nothing was converted. (3 is a usable result of the service's interface that this service never gives.)
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "cvc/converter.h"

class im_Item;  // im/im.h

inline constexpr int kConverted = 0;
inline constexpr int kConvertedWithLoss = 1;
inline constexpr int kNotInSet = 4;      // the input is not text of the set that it is said to be in
inline constexpr int kNoConversion = 5;  // a set is not known

constexpr bool cvc_is_usable(int result) { return result == 0 || result == 1 || result == 3; }

// Converts `text` into `out`, which is emptied first and stays empty when nothing is converted. One set on both
// sides: the text is copied as it is.
int cvc_ConvertString(std::string_view text, std::string_view from, std::string_view to, std::string& out);

// Is there a mapping of the characters of one set to the other, and a converter that does it? One answer here: every
// set that can be read can be written as every other, with "?" for what is missing.
bool cvc_IsMappingAvail(std::string_view from, std::string_view to);
bool cvc_IsConvertAvail(std::string_view from, std::string_view to);

// Can text in this set be read? For names that the detector reports.
bool cvc_iconv_recognised_charset(std::string_view name);

// The converter's own name for a set, to read it or to write it; a name that is not known stays as it is.
enum class cvc_Direction { from, to };
std::string_view cvc_iconvCharsetEquiv(std::string_view name, cvc_Direction direction);

// What became of an item.
struct cvc_FileResult {
    std::uint32_t code = 0;  // 0, or one of the two below
    std::uint64_t lost = 0;  // characters that could not be represented
};
inline constexpr std::uint32_t kUnknownSet = 0xFFFF;   // there is no such conversion
inline constexpr std::uint32_t kInvalidText = 0xFFFE;  // the item is not text of the set
// Converts an item into memory, or into another item (which gets what was converted before a failure; its owner drops
// it). Raises what reading and writing items raises.
cvc_FileResult cvc_iconvConvertFile2(const im_Item& in, std::string& out, std::string_view from, std::string_view to);
cvc_FileResult cvc_iconvConvertFile(const im_Item& in, im_Item& out, std::string_view from, std::string_view to);

// The same with the result of a string conversion: 0 or 1 converted, otherwise `out` is to be dropped.
int cvc_enhConvertFile(const im_Item& in, im_Item& out, std::string_view from, std::string_view to);

void cvc_Reset();  // closes the converters that are kept open; for tests
