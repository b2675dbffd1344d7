// Native names in local parts.
#include "inet/encoded_name.h"

#include <string>

#include <gtest/gtest.h>

namespace {

struct Row {
    const char* text;
    const char* name;  // empty: not of that form
    const char* why;
};

TEST(EncodedNameTest, Names) {
    const Row rows[] = {
        {"/C=FR/ADMD=a/PRMD=p/O=o/OU1=u/S=s/G=g/I=i/GQ=q/CN=c/", "/C=FR/A=a/P=p/O=o/OU1=u/S=s/G=g/I=i/GQ=q/CN=c",
         "every key"},
        {"/A=a/P=p/S=s/", "/A=a/P=p/S=s", "our own keywords"},
        {"/s=s/admd=a/", "/A=a/S=s", "keys in any case and order"},
        {"/OU=a/OU=b/OU=c/OU=d/S=s/", "/OU1=a/OU2=b/OU3=c/OU4=d/S=s", "units take the next free place"},
        {"/OU1=a/OU=b/", "/OU1=a/OU2=b", "also behind a numbered one"},
        {"/S=a$/b$=c$$d/", "/S=a\\/b=c$d", "characters escaped with a dollar sign"},
        {"/S=a=b/", "/S=a=b", "an equals sign in a value"},
        {"/DD.RFC-822=u(a)x.org/O=o/", "/O=o/DD.RFC-822=u(a)x.org", "an address inside stays in printable form"},
        {"/PN=Ada.Lovelace/", "/S=Lovelace/G=Ada", "a personal name: given name and surname"},
        {"/PN=J.F.Kennedy/", "/S=Kennedy/I=JF", "initials"},
        {"/PN=John.F.Kennedy/", "/S=Kennedy/G=John/I=F", "both"},
        {"/PN=Kennedy/", "/S=Kennedy", "a surname alone"},
        {"", "", "nothing"},
        {"/", "", "a slash"},
        {"//", "", "no field"},
        {"/S=s", "", "not closed"},
        {"S=s/", "", "not opened"},
        {"/S=/", "", "an empty value"},
        {"/S=s//", "", "an empty field"},
        {"/=s/", "", "an empty key"},
        {"/S=s/junk/", "", "a field without a value"},
        {"/X=s/", "", "an unknown key"},
        {"/IA=s/", "", "the Internet address is not for others to set"},
        {"/OU=a/OU=b/OU=c/OU=d/OU=e/", "", "more units than there are"},
        {"/S=s$/", "", "the last slash is escaped"},
        {"/usr/bin/", "", "a path"},
    };
    for (const Row& row : rows) {
        std::string name = "left over";
        EXPECT_EQ(inet::read_encoded_name(row.text, name), row.name[0] != '\0') << row.why;
        EXPECT_EQ(name, row.name) << row.why;
    }
}

}  // namespace
