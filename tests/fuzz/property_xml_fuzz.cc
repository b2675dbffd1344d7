// Property XML: it is read or refused; what was read is property text that is read again, and can be written again.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "er/er.h"
#include "mapi/property_text.h"
#include "mapi/property_xml.h"
#include "mapi/property_xml_writer.h"

namespace {

void must(bool holds) {
    if (!holds) std::abort();
}

std::vector<mapi_Property> properties_of(std::string_view lines) {
    std::vector<mapi_Property> properties;
    while (!lines.empty()) {
        const std::size_t end = lines.find('\n');
        must(end != std::string_view::npos);
        auto property = mapi_read_line(lines.substr(0, end));
        must(property.has_value());
        properties.push_back(*std::move(property));
        lines.remove_prefix(end + 1);
    }
    return properties;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view xml(reinterpret_cast<const char*>(data), size);
    try {
        im_Item tnef = im_create(im_Domain::temporary, kScratchItem);
        const MSGSTORE_MAPI_INFO info = mapi_CreateMapiInfoFromXml(xml, tnef);
        must(info.isException == !info.utcRecurrenceIdTime.empty());
        const std::vector<mapi_Property> list = properties_of(info.listProps);
        properties_of(info.compProps);
        properties_of(info.relProps);
        im_Item again = im_create(im_Domain::temporary, kScratchItem);
        must(mapi_CreateMapiInfoFromXml(write_property_xml("C", "", "", list), again).listProps.size() <=
             info.listProps.size());
    } catch (const er_Escape&) {
        er_Accept(5);
    }
    return 0;
}
