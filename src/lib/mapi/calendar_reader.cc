// Components from what the module answers: see calendar_reader.h.
#include "mapi/calendar_reader.h"

#include <algorithm>
#include <array>

#include <climits>

#include "mapi/token_reader.h"

namespace {

std::vector<CalendarComponent> components_of(std::string_view bytes) {
    std::vector<CalendarComponent> done, open;
    TokenCursor tokens(bytes);
    char kind;
    std::string_view text;
    const auto property = [&]() -> CalendarProperty* {
        return open.empty() || open.back().properties.empty() ? nullptr : &open.back().properties.back();
    };
    while (tokens.next(kind, text)) {
        if (kind == 'B') open.emplace_back().name = text;
        if (open.empty()) continue;
        if (kind == 'P') open.back().properties.emplace_back().name = text;
        if (kind == 'N' && property() != nullptr) property()->parameters.emplace_back(text, std::string());
        if (kind == 'V' && property() != nullptr && !property()->parameters.empty())
            property()->parameters.back().second = calendar_utf8(text);
        // libical takes a backslash and one byte for an escape, whatever character that byte began.
        if (kind == 'T' && property() != nullptr) property()->value = calendar_utf8(text);
        if (kind != 'E') continue;
        CalendarComponent whole = std::move(open.back());
        open.pop_back();
        (open.empty() ? done : open.back().components).push_back(std::move(whole));
    }
    return done;
}

}  // namespace

std::string_view CalendarProperty::parameter(std::string_view wanted) const {
    for (const auto& [parameter, text] : parameters)
        if (parameter == wanted) return text;
    return {};
}

const CalendarProperty* CalendarComponent::first(std::string_view wanted) const {
    const auto found = std::find_if(properties.begin(), properties.end(),
                                    [wanted](const CalendarProperty& property) { return property.name == wanted; });
    return found == properties.end() ? nullptr : &*found;
}

std::string_view CalendarComponent::value(std::string_view wanted) const {
    const CalendarProperty* property = first(wanted);
    return property == nullptr ? std::string_view() : std::string_view(property->value);
}

std::vector<CalendarComponent> read_calendar(std::string_view text) {
    const std::string lines = calendar_lines(text);
    if (lines.empty()) return {};
    const auto tokens = read_tokens(TokenKind::calendar, lines);
    return tokens ? components_of(*tokens) : std::vector<CalendarComponent>();
}
