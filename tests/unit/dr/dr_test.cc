// The directory: costs nothing while it is absent, look-ups, import and export, refusals.
#include "dr/dr.h"

#include <sys/stat.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/child.h"
#include "support/home.h"

namespace {

class DrTest : public testing::Test {
protected:
    void SetUp() override { dr_reset(); }
    void TearDown() override { dr_reset(); }

    static dr_ImportResult import(std::string_view text, dr_Format format = dr_Format::csv, bool replace = false,
                                  std::string_view directory = "people") {
        std::istringstream in{std::string(text)};
        return dr_import(directory, in, format, replace);
    }
    static std::string exported(dr_Format format, std::string_view directory = "people") {
        std::ostringstream out;
        dr_export(directory, out, format);
        return out.str();
    }
    // The name found, "-" for none.
    static std::string find(std::string_view value, std::string_view attribute = "mail",
                            std::string_view directory = "people") {
        const std::int16_t session = dr_OpenDir();
        const std::int16_t open = dr_open_directory(session, directory);
        const std::string name = dr_find_name(open, attribute, value).value_or("-");
        dr_close_directory(open);
        dr_CloseDir(session);
        return name;
    }
    // The detail of what `work` raises; empty when it raises nothing.
    template <class Work>
    static std::string refusal(int reason, Work work) {
        try {
            work();
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.group(), kSystemGroup);
            EXPECT_EQ(escape.reason(), reason);
            return escape.detail().empty() ? "(no detail)" : escape.detail();
        }
        return {};
    }
    bool database_there() const { return std::filesystem::exists(home_.path() + "/sys/directory.db"); }

    TestHome home_;
};

constexpr std::string_view kTwo = "name,mail,phone\n/S=Ada,ada@x.org,1\n/S=Bob,bob@x.org,2\n";

TEST_F(DrTest, WithoutADatabaseEveryDirectoryIsEmpty) {
    EXPECT_EQ(find("ada@x.org"), "-");
    EXPECT_TRUE(dr_lookup("people", "mail", "ada@x.org").empty());
    EXPECT_TRUE(dr_list().empty());
    EXPECT_EQ(exported(dr_Format::csv), "name\r\n");
    EXPECT_EQ(exported(dr_Format::ldif), "version: 1\n");
    EXPECT_FALSE(database_there()) << "looking makes nothing";
}

TEST_F(DrTest, HandlesOfNothing) {
    EXPECT_EQ(dr_CloseDir(0), 0);
    EXPECT_EQ(dr_open_directory(0, "people"), 0);
    EXPECT_EQ(dr_close_directory(0), 0);
    EXPECT_EQ(dr_close_directory(77), 0);
    EXPECT_FALSE(dr_find_name(0, "mail", "x"));
    EXPECT_FALSE(dr_find_name(77, "mail", "x"));
    const std::int16_t session = dr_OpenDir();
    EXPECT_NE(session, 0);
    const std::int16_t open = dr_open_directory(session, "people");
    EXPECT_EQ(dr_close_directory(open), 0);
    EXPECT_FALSE(dr_find_name(open, "mail", "x")) << "closed";
    EXPECT_EQ(dr_open_directory(session, "people"), open) << "handles are used again";
    EXPECT_EQ(dr_CloseDir(session), 0);
}

TEST_F(DrTest, LooksUpByAttributeIgnoringCase) {
    EXPECT_EQ(import(kTwo).entries, 2U);
    EXPECT_EQ(find("ada@x.org"), "/S=Ada");
    EXPECT_EQ(find("ADA@X.ORG"), "/S=Ada");
    EXPECT_EQ(find("ada@x.org", "MAIL"), "/S=Ada");
    EXPECT_EQ(find("2", "phone"), "/S=Bob");
    EXPECT_EQ(find("ada@x.org", "phone"), "-");
    EXPECT_EQ(find("ada@x.or"), "-");
    EXPECT_EQ(find("%"), "-") << "no pattern";
    EXPECT_EQ(find("' OR 1=1 --"), "-") << "no statement";
    EXPECT_EQ(find("ada@x.org", "mail", "PEOPLE"), "/S=Ada") << "directory names too";
    EXPECT_EQ(find("ada@x.org", "mail", "others"), "-");
}

TEST_F(DrTest, ADatabaseThatAppearsDuringASessionIsFound) {
    const std::int16_t session = dr_OpenDir();
    const std::int16_t open = dr_open_directory(session, "people");
    EXPECT_FALSE(dr_find_name(open, "mail", "ada@x.org"));
    EXPECT_EQ(run_in_child([] {
                  import(kTwo);
                  return 0;
              }),
              0);
    EXPECT_EQ(dr_find_name(open, "mail", "ada@x.org"), "/S=Ada");
    EXPECT_EQ(run_in_child([] {
                  dr_reset();
                  import("name,mail\n/S=Other,ada@x.org\n", dr_Format::csv, true);
                  return 0;
              }),
              0);
    EXPECT_EQ(dr_find_name(open, "mail", "ada@x.org"), "/S=Other") << "and its changes";
}

TEST_F(DrTest, TheFirstEntryImportedWins) {
    import("name,mail\n/S=Zoe,x@x.org\n/S=Ada,x@x.org\n");
    EXPECT_EQ(find("x@x.org"), "/S=Zoe");
    EXPECT_EQ(dr_lookup("people", "mail", "X@x.org").size(), 2U);
}

TEST_F(DrTest, AnEntryTakesThePlaceOfThoseBeforeTheImport) {
    import(kTwo);
    import("name,mail\n/S=Ada,ada@y.org\n/S=Ada,countess@y.org\n");
    EXPECT_EQ(find("ada@x.org"), "-");
    EXPECT_EQ(find("ada@y.org"), "/S=Ada");
    EXPECT_EQ(find("countess@y.org"), "/S=Ada") << "one import may give several entries one name";
    EXPECT_EQ(find("bob@x.org"), "/S=Bob") << "others stay";
    import("name,mail\n/S=Eve,eve@x.org\n", dr_Format::csv, true);
    EXPECT_EQ(find("bob@x.org"), "-") << "unless all are replaced";
    EXPECT_EQ(find("eve@x.org"), "/S=Eve");
}

TEST_F(DrTest, DirectoriesAreListed) {
    import(kTwo);
    import("name\n/S=Ada\n", dr_Format::csv, false, "Alone \"and quoted\"");
    const auto listing = dr_list();
    ASSERT_EQ(listing.size(), 2U);
    EXPECT_EQ(listing[0].directory, "Alone \"and quoted\"");
    EXPECT_EQ(listing[0].entries, 1U);
    EXPECT_EQ(listing[1].directory, "people");
    EXPECT_EQ(listing[1].entries, 2U);
}

TEST_F(DrTest, Ldif) {
    const auto result = import(
        "version: 1\n"
        "# people\n"
        "dn: uid=ada,o=x\n"
        "objectClass: person\n"
        "morvanename: /C=FR/S=Lovelace\n"
        "mail: ada@x.org\n"
        "MAIL: countess\n"
        " @x.org\n"
        "cn:: QWRhIMOJ\n"
        "empty:\n"
        "\r\n"
        "\n"
        "dn: o=x\r\n"
        "o: a unit without a native name\r\n"
        "\r\n"
        "dn: uid=bob\n"
        "changetype: add\n"
        "morvaneName: /S=Bob\n"
        "mail:bob@x.org",
        dr_Format::ldif);
    EXPECT_EQ(result.entries, 2U);
    EXPECT_EQ(result.skipped, 1U);
    EXPECT_EQ(find("countess@x.org"), "/C=FR/S=Lovelace") << "a folded line, a second value";
    EXPECT_EQ(find("Ada \xC3\x89", "cn"), "/C=FR/S=Lovelace") << "base64";
    EXPECT_EQ(find("bob@x.org"), "/S=Bob") << "no blank behind the colon, no line end";
    const auto found = dr_lookup("people", "mail", "ada@x.org");
    ASSERT_EQ(found.size(), 1U);
    ASSERT_EQ(found[0].attributes.size(), 4U);
    EXPECT_EQ(found[0].attributes[0], std::make_pair(std::string("objectClass"), std::string("person")));
}

TEST_F(DrTest, Csv) {
    const auto result = import(
        "\xEF\xBB\xBFmail,Name,mail,\"odd, \"\"name\"\"\"\r\n"
        "ada@x.org,/S=Ada,\"countess@x.org\",\"two\nlines, \"\"quoted\"\"\"\r\n"
        "\r\n"
        "nobody@x.org,,,\r\n"
        "bob@x.org,/S=Bob");
    EXPECT_EQ(result.entries, 2U);
    EXPECT_EQ(result.skipped, 1U);
    EXPECT_EQ(find("countess@x.org"), "/S=Ada");
    EXPECT_EQ(find("two\nlines, \"quoted\"", "odd, \"name\""), "/S=Ada");
    EXPECT_EQ(find("bob@x.org"), "/S=Bob");
    EXPECT_EQ(find("nobody@x.org"), "-");
}

TEST_F(DrTest, ExportsReadBackToTheSame) {
    const std::string long_value(200, 'v');
    import(
        "name,mail,mail,note\n/S=Ada,ada@x.org,countess@x.org,\"a,\"\"b\"\"\n c\"\n/S=Bob,,,: odd \n/S=Eve,,,\xC3\x89" +
        long_value + "\n/S=Nil,,,\n");
    for (const dr_Format format : {dr_Format::ldif, dr_Format::csv}) {
        const std::string text = exported(format);
        EXPECT_EQ(dr_guess_format(text), format);
        EXPECT_EQ(import(text, format, true, "copy").entries, 4U);
        EXPECT_EQ(exported(dr_Format::ldif, "copy"), exported(dr_Format::ldif));
        EXPECT_EQ(exported(dr_Format::csv, "copy"), exported(dr_Format::csv));
        EXPECT_EQ(exported(format, "copy"), text);
    }
    std::istringstream lines(exported(dr_Format::ldif));
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 76U);
}

TEST_F(DrTest, FormatsAreTold) {
    EXPECT_EQ(dr_guess_format("name,mail\n"), dr_Format::csv);
    EXPECT_EQ(dr_guess_format("name\n"), dr_Format::csv);
    EXPECT_EQ(dr_guess_format("# a, b\n\n\r\ndn: uid=a,o=b\n"), dr_Format::ldif);
    EXPECT_EQ(dr_guess_format("version: 1"), dr_Format::ldif);
    EXPECT_EQ(dr_guess_format("name,a:b\n"), dr_Format::csv);
    EXPECT_EQ(dr_guess_format(""), dr_Format::ldif);
}

TEST_F(DrTest, BadFilesAreRefusedWhole) {
    struct Row {
        std::string_view text;
        dr_Format format;
        std::string_view detail;
    };
    const Row rows[] = {
        {"name,mail\n/S=New,new@x.org\nno name,x\n", dr_Format::csv, "line 3: not a native name: no name"},
        {"mail\nx\n", dr_Format::csv, "line 1: no column is called \"name\""},
        {"", dr_Format::csv, "line 0: no header row"},
        {"name,mail\n/S=New,\"new@x.org\n", dr_Format::csv, "line 2: a quoted field without its end"},
        {"name\n/S=New,x\n", dr_Format::csv, "line 2: more fields than the header row has"},
        {"name,note\n/S=New,\"a\nb\"\nbad,\n", dr_Format::csv, "line 4: not a native name: bad"},
        {"dn: a\nmorvaneName: /S=New\n\nnonsense\n", dr_Format::ldif, "line 4: neither an attribute nor a comment"},
        {"dn: a\nmail:: ***\n", dr_Format::ldif, "line 2: not base64"},
        {"dn: a\nmail:< file:///etc/passwd\n", dr_Format::ldif, "line 2: a value by URL"},
        {"dn: a\nchangetype: delete\n", dr_Format::ldif, "line 2: a change that is not an addition"},
        {"dn: a\nmorvaneName:\n  x\n", dr_Format::ldif, "line 2: not a native name: x"},
    };
    import(kTwo);
    for (const Row& row : rows) {
        EXPECT_EQ(refusal(EINVAL, [&] { import(row.text, row.format, true); }), row.detail);
        EXPECT_EQ(find("ada@x.org"), "/S=Ada") << "nothing has changed: " << row.detail;
    }
}

TEST_F(DrTest, NamesThatNoDirectoryCanHave) {
    for (const std::string& name : {std::string(), std::string(65, 'a'), std::string("a:b"), std::string("a\nb"),
                                    std::string("a\x7F"), std::string("SQLite_x")}) {
        EXPECT_FALSE(dr_good_name(name)) << name;
        EXPECT_NE(refusal(EINVAL, [&] { import(kTwo, dr_Format::csv, false, name); }), "") << name;
        EXPECT_NE(refusal(EINVAL, [&] { dr_lookup(name, "a", "b"); }), "") << name;
    }
    EXPECT_TRUE(dr_good_name(std::string(64, 'a')));
    EXPECT_TRUE(
        dr_good_name("Stra\xC3\x9F"
                     "e 1"));
}

TEST_F(DrTest, TheFileIsForItsOwnerAlone) {
    import(kTwo);
    struct stat status {};
    ASSERT_EQ(::stat((home_.path() + "/sys/directory.db").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(DrTest, ADamagedDatabaseIsAnEscape) {
    std::ofstream(home_.path() + "/sys/directory.db") << "this is no database, but it is long enough to be looked at\n"
                                                      << std::string(4096, 'x');
    EXPECT_NE(refusal(EILSEQ, [] { find("ada@x.org"); }), "");
    EXPECT_NE(refusal(EILSEQ, [] { import(kTwo); }), "");
}

TEST_F(DrTest, AnEmptyFileIsAnEmptyDatabase) {
    std::ofstream(home_.path() + "/sys/directory.db");
    EXPECT_EQ(find("ada@x.org"), "-");
    EXPECT_EQ(import(kTwo).entries, 2U);
}

TEST_F(DrTest, AnImportThatDiesLeavesWhatWasThere) {
    import(kTwo);
    dr_reset();
    EXPECT_EQ(run_in_child([] {
                  // The text ends the process from inside the transaction.
                  struct Deadly : std::stringbuf {
                      using std::stringbuf::stringbuf;
                      int underflow() override { ::_exit(7); }
                  };
                  std::string text = "name,mail\n";
                  for (int i = 0; i < 5000; ++i) text += "/S=New" + std::to_string(i) + ",ada@x.org\n";
                  Deadly buffer(text, std::ios::in);
                  std::istream in(&buffer);
                  dr_import("people", in, dr_Format::csv, true);
                  return 0;
              }),
              7);
    EXPECT_EQ(find("ada@x.org"), "/S=Ada");
    EXPECT_EQ(dr_list()[0].entries, 2U);
}

}  // namespace
