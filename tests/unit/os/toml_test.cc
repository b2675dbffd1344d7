// TOML text in ASCII, and what its parser makes of bad text.
#include "os/toml.h"

#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace {

TEST(AsciiToml, AsciiStaysAsItIs) {
    const os_AsciiToml toml("K = 'a' # ^0^\n");
    EXPECT_EQ(toml.text(), "K = 'a' # ^0^\n");
    EXPECT_EQ(toml.original("^0^41"), "^0^41") << "nothing was marked";
    EXPECT_EQ(toml.bad_line(), 0U);
}

TEST(AsciiToml, OtherBytesAreMarked) {
    const os_AsciiToml toml("\xEF\xBB\xBFK = 'caf\xC3\xA9'\n");
    EXPECT_EQ(toml.text(), "K = 'caf^0^c3^0^a9'\n");
    EXPECT_EQ(toml.original("caf^0^c3^0^a9"), "caf\xC3\xA9");
    EXPECT_EQ(toml.original("saw '^0^c"), "saw '") << "cut by the parser";
    EXPECT_EQ(toml.original(""), "");
}

TEST(AsciiToml, TheMarkOccursNowhereElse) {
    const os_AsciiToml toml("K = '^0^c3 ^1^ \xC3\xA9'\n");
    EXPECT_EQ(toml.text(), "K = '^0^c3 ^1^ ^2^c3^2^a9'\n");
    EXPECT_EQ(toml.original("^0^c3 ^1^ ^2^c3^2^a9"), "^0^c3 ^1^ \xC3\xA9");
}

TEST(AsciiToml, LinesThatAreNotUtf8AreNamed) {
    EXPECT_EQ(os_AsciiToml("\n\nK = '\xE9'\n\xFF").bad_line(), 3U);
    EXPECT_EQ(os_AsciiToml("\xC3").bad_line(), 1U);
}

// What once ended the process or was undefined is an error, or at least a value.
TEST(AsciiToml, BadTextIsAnErrorAndNothingWorse) {
    for (const std::string_view text :
         {"[ = x\n", "[[ = x\n", "K = [} v]\n", "K = 8\"\xCE\x9E\"\n", "caf\xC3\xA9 = 1\n", "K = \xE2\x82\xAC\n",
          "[\xC3\xA9]\n", "K = [,]\n", "K = {]\n", "K = \xC2\xAA\n", "[", "[[", "K", "K =", "K = [", "K = {", "K = '",
          "K = \"\\"}) {
        const os_AsciiToml ascii(text);
        EXPECT_THROW(toml::parse(ascii.text()), toml::parse_error) << text;
    }
}

}  // namespace
