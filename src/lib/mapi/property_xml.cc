// Reading property XML: see property_xml.h. pugixml knows no entities but the five of XML itself and expands nothing
// that a document declares; what it makes of nesting is a tree that is looked at four levels deep.
#include "mapi/property_xml.h"

#include <cerrno>
#include <charconv>
#include <limits>
#include <optional>
#include <vector>

#include <pugixml.hpp>

#include "er/er.h"
#include "mapi/property_text.h"
#include "tnef/encode.h"

namespace {

constexpr std::string_view kRoot = "ploxen-prop";
constexpr std::string_view kReplacedOccurrence = "PidLidExceptionReplaceTime";
constexpr std::uint64_t kDeepest = 256;  // elements in elements; of our own there are four

[[noreturn]] void refuse(std::string why) { er_SystemEscape(EINVAL, std::move(why)); }

// pugixml frees and walks a tree by following its links, but a comment in a thousand elements is no message of ours.
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

std::uint32_t flags_of(const pugi::xml_node& element, const char* name) {
    const std::string_view text = element.attribute(name).value();
    std::uint32_t flags = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), flags);
    if (error == std::errc::result_out_of_range) refuse("flags are too large: " + std::string(name));
    if (!text.empty() && (error != std::errc() || stop != text.data() + text.size()))
        refuse("flags are no number: " + std::string(name));
    return flags;
}

// All the text of an element: entities and CDATA make several pieces of it.
std::string text_of(const pugi::xml_node& element) {
    std::string text;
    for (const pugi::xml_node& child : element.children())
        if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) text.append(child.value());
    return text;
}

mapi_Property property_of(const pugi::xml_node& element) {
    const std::string_view name = element.attribute("name").value(), type = element.attribute("type").value();
    if (name.empty() || type.empty()) refuse("a property without a name or a type");
    auto property = mapi_read_property(name, type, text_of(element), false);
    if (!property) refuse("a property that cannot be read: " + std::string(name) + " of type " + std::string(type));
    return *std::move(property);
}

// Appends the properties of a section as text; `all` gets them too when it is wanted.
void read_section(const pugi::xml_node& section, std::string& text, std::vector<mapi_Property>* all) {
    for (const pugi::xml_node& element : section.children("prop")) {
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

pugi::xml_node parse(std::string_view xml, pugi::xml_document& document) {
    check_depth(xml);
    // Blanks between elements are nothing, but a value may be blanks.
    constexpr unsigned options = pugi::parse_default | pugi::parse_ws_pcdata_single;
    const pugi::xml_parse_result result = document.load_buffer(xml.data(), xml.size(), options);
    if (!result) refuse(std::string(result.description()) + " at byte " + std::to_string(result.offset));
    const pugi::xml_node root = document.document_element();
    if (root.name() != kRoot) refuse("the root element is not " + std::string(kRoot));
    if (root.next_sibling()) refuse("more than one root element");
    return root;
}

MSGSTORE_MAPI_INFO read(std::string_view xml, std::vector<mapi_Property>& properties) {
    pugi::xml_document document;
    const pugi::xml_node root = parse(xml, document);
    MSGSTORE_MAPI_INFO info;
    info.itemClass = root.attribute("class").value();
    info.flags1 = flags_of(root, "flags1");
    info.flags2 = flags_of(root, "flags2");
    info.utf8Subject = text_of(root.child("subject"));
    info.utf8Description = text_of(root.child("description"));
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
