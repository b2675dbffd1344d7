// The language of the process: whoever starts it, mail means the same.
#include "lng/lng.h"

#include <stdlib.h>

#include <cctype>
#include <clocale>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

namespace {

TEST(Language, IsThatOfTheProgramNotOfTheInvoker) {
    ::setenv("LC_ALL", "C.UTF-8", 1);
    ASSERT_NE(std::setlocale(LC_ALL, ""), nullptr);
    EXPECT_NE(std::string(std::setlocale(LC_ALL, nullptr)), "C");
    lng_InitNLS();
    EXPECT_EQ(std::string(std::setlocale(LC_ALL, nullptr)), "C");
    EXPECT_FALSE(std::isalpha(0xE9)) << "letters are those of ASCII";
    ::unsetenv("LC_ALL");
}

}  // namespace
