// The files that a fresh home gets: gateway.toml with every key commented out, and the map of MIME types.
#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#define TOML_ENABLE_FORMATTERS 0
#include <toml++/toml.h>

namespace {

// The project's folder. The compiler may have been given this file's path relative to the build folder, of which
// the program is in tests/.
const std::filesystem::path kSource = std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() /
                                      std::filesystem::path(__FILE__).parent_path() / "../../..";

std::string file_text(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
}

// "#KEY = value", a key switched off; "# text" is a comment.
bool is_switched_off_key(const std::string& line) {
    return line.size() > 1 && line[0] == '#' && line[1] >= 'A' && line[1] <= 'Z';
}

toml::table with_every_key_switched_on() {
    std::string text;
    for (const std::string& line : lines(file_text(kSource / "share/gateway.toml")))
        text += (is_switched_off_key(line) ? line.substr(1) : line) + '\n';
    return toml::parse(text);
}

TEST(GatewayToml, SetsNothing) {
    const std::string text = file_text(kSource / "share/gateway.toml");
    ASSERT_FALSE(text.empty());
    EXPECT_TRUE(toml::parse(text).empty());
}

TEST(GatewayToml, IsGoodTomlWithEveryKeySwitchedOn) {
    const toml::table table = with_every_key_switched_on();
    EXPECT_GE(table.size(), 30U);
    for (const auto& [key, value] : table)
        EXPECT_TRUE(value.is_boolean() || value.is_integer() || value.is_string()) << key.str();
}

// Who looks a key up in the manual must find it.
TEST(GatewayToml, EveryKeyIsInTheManual) {
    const std::string guide = file_text(kSource / "docs/configuration.md");
    const std::string man = file_text(kSource / "packaging/man/gateway.toml.5");
    for (const auto& [key, value] : with_every_key_switched_on()) {
        EXPECT_NE(guide.find('`' + std::string(key.str()) + '`'), std::string::npos) << key.str();
        EXPECT_NE(man.find(".It Cm " + std::string(key.str())), std::string::npos) << key.str();
    }
}

// ... and the manual names no key that the file does not show.
TEST(GatewayToml, TheManualHasNoOtherKey) {
    const toml::table table = with_every_key_switched_on();
    for (const std::string& line : lines(file_text(kSource / "packaging/man/gateway.toml.5"))) {
        if (!line.starts_with(".It Cm ")) continue;
        EXPECT_TRUE(table.contains(line.substr(7))) << line;
    }
}

// A key that the programs ask for and nobody can know of would be a secret switch.
TEST(GatewayToml, ShowsEveryKeyThatTheProgramsAskFor) {
    const toml::table table = with_every_key_switched_on();
    const std::regex asked(R"re(\b(?:cust_[A-Za-z]+|mim_ChkMappingConfig)\(\s*"([A-Za-z0-9_]+)")re");
    int found = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(kSource / "src")) {
        if (entry.path().extension() != ".cc") continue;
        const std::string text = file_text(entry.path());
        for (std::sregex_iterator at(text.begin(), text.end(), asked), end; at != end; ++at, ++found)
            EXPECT_TRUE(table.contains((*at)[1].str())) << (*at)[1] << " in " << entry.path();
    }
    EXPECT_GT(found, 10) << "the search finds nothing";
}

struct CodeRow {
    std::string_view mime;
    std::int64_t code;
};

// The rows that behaviour depends on.
constexpr auto kCodes = std::to_array<CodeRow>({
    {"text/plain", 1167},
    {"text/html", 2133},
    {"application/ms-tnef", 1734},
    {"application/vnd.ms-tnef", 1734},
    {"text/calendar", 2191},
    {"application/rtf", 2130},
    {"text/rtf", 2130},
    {"application/ploxen-prop", 3100},
    {"application/x-ploxen-distlist", 1166},
    {"application/octet-stream", 0},
    {"image/png", 0},
});

// The rows of mimetypes.toml.
toml::array mime_types() {
    const toml::table table = toml::parse(file_text(kSource / "share/mimetypes.toml"));
    const toml::array* rows = table["type"].as_array();
    return rows != nullptr ? *rows : toml::array{};
}

TEST(MimeTypes, AreThere) { EXPECT_GT(mime_types().size(), 100U); }

TEST(MimeTypes, HaveTheCodesThatBehaviourDependsOn) {
    const toml::array rows = mime_types();
    for (const CodeRow& expected : kCodes) {
        const bool found = std::ranges::any_of(rows, [&](const toml::node& node) {
            const toml::table& row = *node.as_table();
            return row["mime"].value_or(std::string()) == expected.mime && row["code"].value_or(-1) == expected.code;
        });
        EXPECT_TRUE(found) << expected.mime << ' ' << expected.code;
    }
}

TEST(MimeTypes, AreLowerCaseAndDistinctAndSoAreExtensions) {
    std::set<std::string> types, extensions;
    const toml::array rows = mime_types();
    for (const toml::node& node : rows) {
        const toml::table& row = *node.as_table();
        const auto type = row["mime"].value_or(std::string());
        EXPECT_EQ(std::ranges::count(type, '/'), 1) << type;
        EXPECT_TRUE(std::ranges::none_of(type, [](char c) { return c >= 'A' && c <= 'Z'; })) << type;
        EXPECT_TRUE(types.insert(type).second) << type << " has two rows";
        EXPECT_TRUE(row["code"].is_integer()) << type;
        for (const toml::node& entry : *row["extensions"].as_array()) {
            const auto extension = entry.value_or(std::string());
            EXPECT_FALSE(extension.empty() || extension.starts_with('.')) << type;
            EXPECT_TRUE(extensions.insert(extension).second) << extension << " stands in two rows";
        }
    }
}

// Text whose row has an unregistered code would be taken for binary.
TEST(MimeTypes, EveryTextTypeIsText) {
    const toml::array rows = mime_types();
    for (const toml::node& node : rows) {
        const toml::table& row = *node.as_table();
        const auto type = row["mime"].value_or(std::string());
        if (!type.starts_with("text/")) continue;
        EXPECT_NE(row["code"].value_or(0), 0) << type;
    }
}

}  // namespace
