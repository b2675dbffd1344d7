// Reading property XML: see property_xml.h.
#include "mapi/property_xml.h"

#include <cerrno>
#include <charconv>
#include <optional>
#include <vector>

#include "er/er.h"
#include "mapi/property_text.h"
#include "mapi/token_reader.h"
#include "tnef/encode.h"

namespace {

constexpr std::string_view kRoot = "ploxen-prop";
constexpr std::string_view kReplacedOccurrence = "PidLidExceptionReplaceTime";
constexpr std::uint64_t kDeepest = 256;  // elements in elements; of our own there are four

[[noreturn]] void refuse(std::string why) { er_SystemEscape(EINVAL, std::move(why)); }

// A document in a thousand elements is no message of ours.
// Counted on the text: "<" followed by anything but "/", "!" and "?" opens, "</" and "/>" close; what stands in
// comments and CDATA makes the number larger at most, so that only documents that hold much of that are refused
// needlessly.
void check_depth(std::string_view xml) {
    std::uint64_t depth = 0;
    for (std::size_t i = 0; i + 1 < xml.size(); ++i) {
        const bool closes = (xml[i] == '<' && xml[i + 1] == '/') || (xml[i] == '/' && xml[i + 1] == '>');
        if (closes && depth > 0) --depth;
        if (xml[i] == '<' && xml[i + 1] != '/' && xml[i + 1] != '!' && xml[i + 1] != '?') ++depth;
        if (depth > kDeepest) refuse("elements are nested too deeply");
    }
}

struct Element {
    std::string name, text;  // all of its text: entities and CDATA make several pieces of it
    std::vector<std::pair<std::string, std::string>> attributes;
    std::vector<Element> elements;

    std::string_view attribute(std::string_view wanted) const {
        for (const auto& [attribute_name, value] : attributes)
            if (attribute_name == wanted) return value;
        return {};
    }
    const Element& child(std::string_view wanted) const {  // the first; none: an empty one
        static const Element none;
        for (const Element& element : elements)
            if (element.name == wanted) return element;
        return none;
    }
};

// The elements of a document: one, if it is well formed.
std::vector<Element> elements_of(std::string_view tokens) {
    std::vector<Element> done, open;
    TokenCursor cursor(tokens);
    char kind;
    for (std::string_view text; cursor.next(kind, text);) {
        if (kind == 'F') refuse(std::string(text));
        if (kind == 'B') open.emplace_back().name = text;
        if (open.empty()) continue;
        Element& element = open.back();
        if (kind == 'N') element.attributes.emplace_back(text, std::string());
        if (kind == 'V' && !element.attributes.empty()) element.attributes.back().second = text;
        if (kind == 'T') element.text.append(text);
        if (kind != 'E') continue;
        Element whole = std::move(element);
        open.pop_back();
        (open.empty() ? done : open.back().elements).push_back(std::move(whole));
    }
    return done;
}

std::uint32_t flags_of(const Element& element, std::string_view name) {
    const std::string_view text = element.attribute(name);
    std::uint32_t flags = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), flags);
    if (error == std::errc::result_out_of_range) refuse("flags are too large: " + std::string(name));
    if (!text.empty() && (error != std::errc() || stop != text.data() + text.size()))
        refuse("flags are no number: " + std::string(name));
    return flags;
}

mapi_Property property_of(const Element& element) {
    const std::string_view name = element.attribute("name"), type = element.attribute("type");
    if (name.empty() || type.empty()) refuse("a property without a name or a type");
    auto property = mapi_read_property(name, type, element.text, false);
    if (!property) refuse("a property that cannot be read: " + std::string(name) + " of type " + std::string(type));
    return *std::move(property);
}

// Appends the properties of a section as text; `all` gets them too when it is wanted.
void read_section(const Element& section, std::string& text, std::vector<mapi_Property>* all) {
    for (const Element& element : section.elements) {
        if (element.name != "prop") continue;
        mapi_Property property = property_of(element);
        mapi_append_line(text, property);
        if (all != nullptr) all->push_back(std::move(property));
    }
}

void note_exception(const std::vector<mapi_Property>& properties, MSGSTORE_MAPI_INFO& info) {
    for (const mapi_Property& property : properties) {
        if (mapi_name_text(property) != kReplacedOccurrence || property.type != mapi_Type::time) continue;
        info.isException = true;
        info.utcRecurrenceIdTime = mapi_value_text(property, false);
    }
}

Element parse(std::string_view xml) {
    check_depth(xml);
    const auto tokens = read_tokens(TokenKind::xml, xml);
    if (!tokens) refuse("there is nothing that reads XML");
    std::vector<Element> roots = elements_of(*tokens);
    if (roots.empty() || roots.front().name != kRoot) refuse("the root element is not " + std::string(kRoot));
    if (roots.size() > 1) refuse("more than one root element");
    return std::move(roots.front());
}

MSGSTORE_MAPI_INFO read(std::string_view xml, std::vector<mapi_Property>& properties) {
    const Element root = parse(xml);
    MSGSTORE_MAPI_INFO info;
    info.itemClass = root.attribute("class");
    info.flags1 = flags_of(root, "flags1");
    info.flags2 = flags_of(root, "flags2");
    info.utf8Subject = root.child("subject").text;
    info.utf8Description = root.child("description").text;
    read_section(root.child("list"), info.listProps, &properties);
    read_section(root.child("comp"), info.compProps, nullptr);
    info.relFlags = flags_of(root.child("rel"), "flags");
    read_section(root.child("rel"), info.relProps, &properties);
    note_exception(properties, info);
    return info;
}

}  // namespace

MSGSTORE_MAPI_INFO mapi_CreateMapiInfoFromXml(std::string_view xml, im_Item& tnef) {
    const er_Trace trace("mapi_CreateMapiInfoFromXml");
    MSGSTORE_MAPI_INFO info;
    er_Translate([&] {
        std::vector<mapi_Property> properties;
        info = read(xml, properties);
        tnef_Encode(tnef, info.itemClass, properties);
    });
    return info;
}
