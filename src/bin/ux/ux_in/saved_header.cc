// A saved header, read back: see saved_header.h.
#include "ux_in/saved_header.h"

#include "mim/mim.h"
#include "ux_in/commands.h"
#include "ux_in/lines.h"

namespace ux {

std::string_view SavedHeader::line() {
    const std::string_view raw = reader_.line(kTextLineLimit).value_or(std::string_view{});
    const std::string_view text = raw.substr(0, raw.find('\r'));
    return text.substr(0, text.find('\n'));
}

bool SavedHeader::next() {
    for (start_ = reader_.position(); reader_.peek() != -1; start_ = reader_.position()) {
        line_.assign(line());
        const ux_KeywordLine field = ux_InParseCommandLine(line_);
        if (!field.found) continue;
        name_ = field.pCommand;
        value_ = mim_SpaceTrimming(field.pArgument);
        return true;
    }
    return false;
}

std::optional<std::string_view> SavedHeader::continuation() {
    const int first = reader_.peek();
    if (first != ' ' && first != '\t') return std::nullopt;
    reader_.skip(1);
    return line();
}

void SavedHeader::join(std::string& value, std::string_view separator, bool trim) {
    while (const auto more = continuation()) {
        const std::string_view text = trim ? mim_SpaceTrimming(*more) : *more;
        if (value.size() + text.size() + separator.size() >= kFieldLimit) continue;
        value.append(separator).append(text);
    }
}

std::string SavedHeader::space_joined() {
    std::string value(value_);
    join(value, " ", false);
    return value;
}

std::string SavedHeader::space_joined_trimmed() {
    std::string value(value_);
    join(value, " ", true);
    return value;
}

std::string SavedHeader::appended() {
    std::string value(value_);
    join(value, "", false);
    return value;
}

}  // namespace ux
