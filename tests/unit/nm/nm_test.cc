// Native names: the form they are written in, what is read of others, editing, bounds, equality.
#include "nm/nm.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace {

class NmTest : public testing::Test {
protected:
    void TearDown() override { nm_reset(); }
};

std::string set(std::string name, int field, std::string_view value) {
    NM_PARSE_STATUS status = nm_ParseORN(name);
    nm_PutFieldStr(name, status, field, value);
    return name;
}

std::string get(std::string_view name, int field) { return nm_get_field(name, nm_ParseORN(name), field); }

std::string key_of(std::string_view name) {
    std::string key;
    nm_key(name, key);
    return key;
}

TEST_F(NmTest, EveryFieldHasItsKeyword) {
    struct Row {
        int number;
        const char* text;
    };
    const Row rows[] = {
        {1, "/C=v"},   {2, "/A=v"},   {3, "/P=v"},   {4, "/O=v"},           {5, "/OU1=v"},
        {6, "/OU2=v"}, {7, "/OU3=v"}, {8, "/OU4=v"}, {9, "/S=v"},           {10, "/G=v"},
        {11, "/I=v"},  {12, "/GQ=v"}, {13, "/CN=v"}, {20, "/DD.RFC-822=v"}, {130, "/IA=v"},
    };
    ASSERT_EQ(std::size(rows), kNmFields.size());
    for (const Row& row : rows) {
        EXPECT_EQ(set("", row.number, "v"), row.text);
        EXPECT_EQ(get(row.text, row.number), "v") << row.text;
    }
}

TEST_F(NmTest, FieldsAreWrittenInAscendingOrder) {
    std::string name;
    NM_PARSE_STATUS status = nm_ParseORN(name);
    for (const int field : {130, 9, 20, 1, 13, 4}) nm_PutFieldStr(name, status, field, std::to_string(field));
    EXPECT_EQ(name, "/C=1/O=4/S=9/CN=13/DD.RFC-822=20/IA=130");
}

TEST_F(NmTest, DelimiterAndBackslashAreEscaped) {
    struct Row {
        char delimiter;
        const char* value;
        const char* text;
        const char* why;
    };
    const Row rows[] = {
        {'/', "a/b", "/S=a\\/b", "the delimiter"},
        {'/', "a\\b", "/S=a\\\\b", "a backslash"},
        {'/', "\\/", "/S=\\\\\\/", "both"},
        {'/', "a=b", "/S=a=b", "an equals sign is no matter"},
        {';', "a/b;c", ";S=a/b\\;c", "another delimiter"},
        {'=', "a=b", "=S=a\\=b", "the delimiter is the sign behind the keyword"},
        {'S', "SoS", "SS=\\So\\S", "the delimiter is a letter of keywords"},
        {'\\', "a\\b", "\\S=a\\\\b", "the delimiter is the backslash"},
    };
    for (const Row& row : rows) {
        nm_state().inet_PrimDelim = row.delimiter;
        EXPECT_EQ(set("", kNmSurname, row.value), row.text) << row.why;
        EXPECT_EQ(get(row.text, kNmSurname), row.value) << row.why;
        const std::string two = set(row.text, kNmInternetAddress, row.value);
        EXPECT_EQ(get(two, kNmSurname), row.value) << row.why << ": " << two;
        EXPECT_EQ(get(two, kNmInternetAddress), row.value) << row.why << ": " << two;
    }
}

TEST_F(NmTest, ReadsWhatOthersWrite) {
    struct Row {
        const char* text;
        int field;
        const char* value;
        const char* why;
    };
    const Row rows[] = {
        {"/s=Smith", 9, "Smith", "keywords in any case"},
        {"/dd.rfc-822=x", 20, "x", "the longest keyword too"},
        {"/IA=i/S=Smith", 9, "Smith", "any order"},
        {"/S=a/S=b", 9, "b", "the last of two equal fields"},
        {"/S=a/S=", 9, "a", "an empty value is no field"},
        {"junk/S=a", 9, "a", "what stands before the first delimiter"},
        {"/junk/S=a", 9, "a", "a piece that is no field"},
        {"/XX=1/S=a", 9, "a", "a keyword that is unknown"},
        {"/S=a\\x", 9, "a\\x", "a backslash that escapes nothing"},
        {"/S=a\\", 9, "a\\", "a backslash at the end"},
        {"/S=a/", 9, "a", "a delimiter at the end"},
        {"/OU=a", 5, "", "a keyword is not its beginning"},
        {"/OU11=a", 5, "", "nor more than it"},
        {"/S", 9, "", "a keyword alone"},
        {"", 9, "", "nothing"},
        {"/", 9, "", "a delimiter alone"},
    };
    for (const Row& row : rows) EXPECT_EQ(get(row.text, row.field), row.value) << row.why << ": " << row.text;
}

TEST_F(NmTest, EditingMakesTheNameCanonical) {
    EXPECT_EQ(set("/IA=i/s=Smith/junk/S=Jones", kNmCountry, "FR"), "/C=FR/S=Jones/IA=i");
    EXPECT_EQ(set("/S=a\\b", kNmCountry, "FR"), "/C=FR/S=a\\\\b");
    EXPECT_EQ(set("/S=a/", kNmCountry, ""), "/S=a");
}

TEST_F(NmTest, EditingReplacesInsertsAndRemoves) {
    EXPECT_EQ(set("/C=FR/S=a/IA=i", kNmSurname, "longer"), "/C=FR/S=longer/IA=i");
    EXPECT_EQ(set("/C=FR/S=a/IA=i", kNmSurname, ""), "/C=FR/IA=i");
    EXPECT_EQ(set("/C=FR/IA=i", kNmSurname, "a"), "/C=FR/S=a/IA=i");
    EXPECT_EQ(set("/S=a/IA=i", kNmInternetAddress, "j"), "/S=a/IA=j");
    EXPECT_EQ(set("/S=a/IA=i", kNmInternetAddress, ""), "/S=a");
    EXPECT_EQ(set("/S=a", kNmSurname, ""), "") << "no field, no name";
    EXPECT_EQ(set("/S=a", 99, "x"), "/S=a") << "no such field";
    EXPECT_EQ(set("/S=a", kNmInternetAddress, std::string_view("x\0y", 3)), "/S=a/IA=x") << "up to the first NUL";
}

TEST_F(NmTest, StatusStaysInStepWithTheText) {
    std::string name = "/S=a";
    NM_PARSE_STATUS status = nm_ParseORN(name);
    const std::vector<std::pair<int, std::string>> edits = {
        {130, "x/y"}, {1, "FR"}, {9, "longer \\ name"}, {130, ""}, {20, "d"}, {1, ""}, {130, "z"}};
    for (const auto& [field, value] : edits) {
        nm_PutFieldStr(name, status, field, value);
        EXPECT_EQ(nm_get_field(name, status, field), value) << name;
        EXPECT_EQ(nm_get_field(name, status, kNmSurname), get(name, kNmSurname)) << name;
    }
    EXPECT_EQ(name, "/S=longer \\\\ name/DD.RFC-822=d/IA=z");
}

TEST_F(NmTest, NamesAreCutAtTheirBound) {
    const std::size_t key = std::string_view("/S=").size();
    const std::string fits(kNativeNameLimit - key, 'a');
    EXPECT_EQ(set("", kNmSurname, fits).size(), kNativeNameLimit);
    EXPECT_EQ(set("", kNmSurname, fits + 'a'), "/S=" + fits);
    EXPECT_EQ(set("/S=" + fits, kNmInternetAddress, "i"), "/S=" + fits)
        << "what is appended to a cut text is bounded too";
    const std::string cut = set("/IA=i", kNmSurname, fits);
    EXPECT_EQ(cut.size(), kNativeNameLimit);
    EXPECT_EQ(get(cut, kNmSurname), fits);
    std::string written;
    nm_Writer writer(written);
    writer.put(kNmSurname, std::string(9000, '/'));
    writer.finish();
    EXPECT_EQ(written.size(), kNativeNameLimit);
}

TEST_F(NmTest, WriterWritesTheSameText) {
    std::string name = "old";
    nm_Writer writer(name);
    writer.put(kNmSurname, "a/b");
    writer.put(kNmGivenName, "");
    writer.begin(kNmRfc822);
    for (const char c : std::string_view("x\\/")) writer.add(c);
    writer.finish();
    EXPECT_EQ(name, "/S=a\\/b/DD.RFC-822=x\\\\\\/");
}

TEST_F(NmTest, EqualityLooksAtAllFieldsButTwo) {
    struct Row {
        const char* a;
        const char* b;
        bool equal;
        const char* why;
    };
    const Row rows[] = {
        {"/S=Smith", "/S=SMITH", true, "case is ignored"},
        {"/S=Smith/CN=x/IA=y", "/S=Smith", true, "CN and IA do not count"},
        {"/CN=x", "/CN=y", true, "even alone"},
        {"/S=Smith/O=x", "/O=x/S=smith", true, "the order does not count"},
        {"/S=a\\/b", "/S=a\\/b/IA=i", true, "escaped"},
        {"/S=a\\/b", "/S=a", false, "an escaped delimiter ends nothing"},
        {"/S=Smith", "/S=Smith/G=x", false, "one field more"},
        {"/S=Smith", "/G=Smith", false, "another field"},
        {"/S=ab", "/S=a/G=b", false, "the same characters in other fields"},
        {"/DD.RFC-822=u(a)x", "/DD.RFC-822=U(A)X", true, "addresses too"},
        {"", "", true, "two empty names"},
        {"/S=\xC3\xA9", "/S=\xC3\x89", false, "only the case of ASCII letters is ignored"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(nm_CompareORNs(row.a, row.b), row.equal) << row.why;
        EXPECT_EQ(nm_CompareORNs(row.b, row.a), row.equal) << row.why;
        EXPECT_EQ(key_of(row.a) == key_of(row.b), row.equal) << row.why << ": keys";
        EXPECT_EQ(nm_hash(key_of(row.a)) == nm_hash(key_of(row.b)), row.equal) << row.why << ": hashes";
    }
}

TEST_F(NmTest, HashTellsTextsOfAllLengthsApart) {
    std::vector<std::uint64_t> hashes;
    for (std::size_t length = 0; length < 40; ++length) {
        hashes.push_back(nm_hash(std::string(length, '\0')));
        hashes.push_back(nm_hash(std::string(length, '\0') + 'a'));
    }
    std::sort(hashes.begin(), hashes.end());
    EXPECT_EQ(std::adjacent_find(hashes.begin(), hashes.end()), hashes.end());
}

}  // namespace
