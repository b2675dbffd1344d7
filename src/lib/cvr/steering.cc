// Steering files: see steering.h.
#include "cvr/steering.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "ccs/ccs.h"
#include "cvc/utf8.h"
#include "os/toml.h"

namespace {

constexpr std::string_view kAny = "*";

// What stops the reading of a file; it never leaves this file.
struct Complaint {
    SteeringError error;
};

[[noreturn]] void complain(const toml::node& node, std::string what) {
    throw Complaint{{node.source().begin.line, std::move(what)}};
}

// One table of the file: its values by key, and at the end what nobody asked for.
class Section {
public:
    Section(const os_AsciiToml& source, const toml::table& table, std::string name)
        : source_(source), table_(table), name_(std::move(name)) {}

    std::string text(std::string_view key) {
        const toml::node* node = find(key);
        if (node == nullptr) complain(table_, place(key) + " is missing");
        const auto* value = node->as_string();
        if (value == nullptr || value->get().empty()) complain(*node, place(key) + ": a text is wanted");
        return source_.original(value->get());
    }

    // A set by its native name.
    std::string set(std::string_view key) { return std::string(ccs_native_name(text(key))); }

    std::optional<std::int32_t> number(std::string_view key, std::int64_t least, std::int64_t most) {
        const toml::node* node = find(key);
        if (node == nullptr) return std::nullopt;
        const auto* value = node->as_integer();
        if (value == nullptr || value->get() < least || value->get() > most)
            complain(*node, place(key) + ": a number from " + std::to_string(least) + " to " + std::to_string(most) +
                                " is wanted");
        return static_cast<std::int32_t>(value->get());
    }

    std::int32_t type(std::string_view key) {
        return number(key, 0, std::numeric_limits<std::int32_t>::max()).value_or(0);
    }

    std::vector<std::string> texts(std::string_view key) {
        const toml::node* node = find(key);
        if (node == nullptr) complain(table_, place(key) + " is missing");
        const toml::array* values = node->as_array();
        if (values == nullptr || values->empty()) complain(*node, place(key) + ": a list of texts is wanted");
        std::vector<std::string> all;
        for (const toml::node& value : *values) {
            const auto* text = value.as_string();
            const bool usable = text != nullptr && text->get().find('\0') == std::string::npos;
            if (!usable) complain(value, place(key) + ": a list of texts is wanted");
            all.push_back(source_.original(text->get()));
        }
        if (all.front().empty()) complain(*node, place(key) + ": a program is wanted");
        return all;
    }

    void report_unknown(std::vector<SteeringError>& warnings) const {
        for (const auto& [key, node] : table_)
            if (std::find(asked_.begin(), asked_.end(), key.str()) == asked_.end())
                warnings.push_back({node.source().begin.line, place(key.str()) + " has no meaning here"});
    }

    const toml::table& table() const { return table_; }

private:
    const toml::node* find(std::string_view key) {
        asked_.push_back(key);
        return table_.get(key);
    }
    std::string place(std::string_view key) const { return "key " + source_.original(key) + " of " + name_; }

    const os_AsciiToml& source_;
    const toml::table& table_;
    std::string name_;
    std::vector<std::string_view> asked_;
};

class Parser {
public:
    Parser(const os_AsciiToml& source, std::vector<SteeringError>& warnings) : source_(source), warnings_(warnings) {}

    Steering parse(const toml::table& file) {
        for (const auto& [key, node] : file) top_level(key.str(), node);
        for (const auto& [row, node] : named_)  // a converter may be described after the rows that name it
            if (!steering_.converters.contains(steering_.converts[row].converter))
                complain(*node, "converter " + steering_.converts[row].converter + " is not described");
        return std::move(steering_);
    }

private:
    void top_level(std::string_view key, const toml::node& node) {
        if (key == "target")
            each_row(key, node, [this](Section& row) { target(row); });
        else if (key == "convert")
            each_row(key, node, [this](Section& row) { convert(row); });
        else if (key == "discard")
            each_row(key, node, [this](Section& row) { steering_.discards.push_back(match(row)); });
        else if (key == "converter")
            each_converter(node);
        else
            warnings_.push_back({node.source().begin.line, "key " + source_.original(key) + " has no meaning here"});
    }

    template <class Read>
    void each_row(std::string_view key, const toml::node& node, Read&& read) {
        const std::string name = "[[" + std::string(key) + "]]";
        const toml::array* rows = node.as_array();
        if (rows == nullptr) complain(node, name + " is wanted");
        for (const toml::node& entry : *rows) {
            const toml::table* table = entry.as_table();
            if (table == nullptr) complain(entry, name + " is wanted");
            Section row(source_, *table, name);
            read(row);
            row.report_unknown(warnings_);
        }
    }

    static SteeringMatch match(Section& row) { return {row.set("from"), row.type("type")}; }

    void target(Section& row) {
        SteeringMatch wanted = match(row);
        steering_.targets.push_back({std::move(wanted), row.set("to")});
    }

    void convert(Section& row) {
        ConvertRow convert{match(row), row.type("to_type"), row.set("to"), row.text("converter")};
        check_converter_name(row.table(), convert.converter);
        named_.emplace_back(steering_.converts.size(), &row.table());
        steering_.converts.push_back(std::move(convert));
    }

    static void check_converter_name(const toml::node& node, std::string_view name) {
        if (name.size() <= kConverterNameLimit) return;
        complain(node, "converter " + std::string(name) + ": at most 8 characters are wanted");
    }

    void each_converter(const toml::node& node) {
        const toml::table* converters = node.as_table();
        if (converters == nullptr) complain(node, "[converter.NAME] is wanted");
        for (const auto& [name, entry] : *converters) {
            const std::string original = source_.original(name.str());
            const toml::table* table = entry.as_table();
            if (table == nullptr) complain(entry, "[converter." + original + "] is wanted");
            check_converter_name(entry, original);
            converter(original, *table);
        }
    }

    void converter(const std::string& name, const toml::table& table) {
        constexpr std::int64_t kLongest = 3600;
        Section section(source_, table, "[converter." + name + "]");
        ConverterCommand command;
        command.command = section.texts("command");
        if (const auto seconds = section.number("timeout", 1, kLongest))
            command.timeout = std::chrono::seconds(*seconds);
        section.report_unknown(warnings_);
        steering_.converters.emplace(name, std::move(command));
    }

    const os_AsciiToml& source_;
    std::vector<SteeringError>& warnings_;
    Steering steering_;
    std::vector<std::pair<std::size_t, const toml::node*>> named_;  // rows of converts, and where they stand
};

}  // namespace

bool SteeringMatch::covers(std::int32_t asked_type, std::string_view asked_set) const {
    return (type == 0 || type == asked_type) && (from == kAny || ccs_same_set(from, asked_set));
}

std::optional<Steering> parse_steering(std::string_view text, SteeringError& error,
                                       std::vector<SteeringError>& warnings) {
    if (const std::size_t valid = check_utf8(text).valid; valid != text.size()) {
        const std::string_view before = text.substr(0, valid);
        error = {static_cast<unsigned>(std::count(before.begin(), before.end(), '\n')) + 1, "not UTF-8"};
        return std::nullopt;
    }
    const os_AsciiToml source(text);
    try {
        const toml::table file = toml::parse(source.text());
        return Parser(source, warnings).parse(file);
    } catch (const toml::parse_error& complaint) {
        error = {complaint.source().begin.line, source.original(complaint.description())};
    } catch (const Complaint& complaint) {
        error = complaint.error;
    }
    return std::nullopt;
}
