// The half of morvane-properties.so that reads XML: see properties_module.h. pugixml knows no entities but the five of
// XML itself and expands nothing that a document declares.
#include <string>
#include <string_view>

#include <pugixml.hpp>

#include "mapi/properties_module.h"
#include "mapi/token_writer.h"

namespace {

void put_element(TokenWriter& out, const pugi::xml_node& element) {
    out.put('B', element.name());
    for (const pugi::xml_attribute& attribute : element.attributes()) {
        out.put('N', attribute.name());
        out.put('V', attribute.value());
    }
}

// All elements and their text, in the order of the document, without calls of itself.
struct TokenWalker : pugi::xml_tree_walker {
    explicit TokenWalker(TokenWriter& writer) : out(writer) {}
    bool for_each(pugi::xml_node& node) override {
        for (; open >= depth() + 1; --open) out.put('E', {});
        if (node.type() == pugi::node_element) {
            put_element(out, node);
            ++open;
        } else if (node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata) {
            out.put('T', node.value());
        }
        return true;
    }
    bool end(pugi::xml_node&) override {
        for (; open > 0; --open) out.put('E', {});
        return true;
    }
    TokenWriter& out;
    int open = 0;
};

}  // namespace

int morvane_xml_read(const char* text, std::size_t size, char** out, std::size_t* out_size) noexcept {
    try {
        // Blanks between elements are nothing, but a value may be blanks.
        constexpr unsigned options = pugi::parse_default | pugi::parse_ws_pcdata_single;
        pugi::xml_document document;
        TokenWriter tokens;
        if (const pugi::xml_parse_result result = document.load_buffer(text, size, options); !result) {
            tokens.put('F', result.description() + (" at byte " + std::to_string(result.offset)));
            return tokens.hand_over(out, out_size);
        }
        TokenWalker walker(tokens);
        document.traverse(walker);
        return tokens.hand_over(out, out_size);
    } catch (...) {
        return kTokensFailed;
    }
}
