// Writing property XML: see property_xml_writer.h.
#include "mapi/property_xml_writer.h"

#include "mapi/property_text.h"

namespace {

// Characters of XML 1.0 (section 2.2); a CR would be read as a line end.
void append_text(std::string& out, std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        switch (c) {
            case '&': out.append("&amp;"); continue;
            case '<': out.append("&lt;"); continue;
            case '>': out.append("&gt;"); continue;
            case '"': out.append("&quot;"); continue;
            case '\r': out.append("&#13;"); continue;
            default: break;
        }
        const bool is_control = static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n';
        const bool is_no_character =
            text.substr(i).starts_with("\xEF\xBF\xBE") || text.substr(i).starts_with("\xEF\xBF\xBF");
        if (is_no_character) i += 2;
        if (!is_control && !is_no_character) out += c;
    }
}

void append_element(std::string& out, std::string_view name, std::string_view text) {
    out.append("<").append(name).append(">");
    append_text(out, text);
    out.append("</").append(name).append(">\n");
}

}  // namespace

std::string write_property_xml(std::string_view item_class, std::string_view subject, std::string_view description,
                               const std::vector<mapi_Property>& list) {
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ploxen-prop class=\"";
    append_text(out, item_class);
    out.append("\" flags1=\"0\" flags2=\"0\">\n");
    append_element(out, "subject", subject);
    append_element(out, "description", description);
    out.append("<list>\n");
    for (const mapi_Property& property : list) {
        out.append("<prop name=\"").append(mapi_name_text(property)).append("\" type=\"");
        out.append(mapi_type_text(property)).append("\">");
        append_text(out, mapi_value_text(property, false));
        out.append("</prop>\n");
    }
    out.append("</list>\n</ploxen-prop>\n");
    return out;
}
