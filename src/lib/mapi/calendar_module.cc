// The half of morvane-properties.so that reads calendars: see properties_module.h. Nothing here knows the message
// store; libical's objects stay inside.
#include <libical/ical.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "mapi/properties_module.h"
#include "mapi/token_writer.h"

namespace {

struct ReleaseText {
    void operator()(char* text) const { icalmemory_free_buffer(text); }
};
using OwnedText = std::unique_ptr<char, ReleaseText>;

struct ReleaseComponent {
    void operator()(icalcomponent* component) const { icalcomponent_free(component); }
};
using OwnedComponent = std::unique_ptr<icalcomponent, ReleaseComponent>;

struct ReleaseParser {
    void operator()(icalparser* parser) const { icalparser_free(parser); }
};
using OwnedParser = std::unique_ptr<icalparser, ReleaseParser>;

std::string_view view_of(const char* text) { return text == nullptr ? std::string_view() : std::string_view(text); }

std::string signed_seconds(int seconds) {
    std::string text = std::to_string(seconds);
    if (seconds >= 0) text.insert(text.begin(), '+');
    return text;
}

std::string as_libical_writes_it(icalvalue* value) {
    const OwnedText text(icalvalue_as_ical_string_r(value));
    return std::string(view_of(text.get()));
}

std::string value_text(icalvalue* value) {
    switch (icalvalue_isa(value)) {
        case ICAL_TEXT_VALUE: return std::string(view_of(icalvalue_get_text(value)));
        case ICAL_X_VALUE: return std::string(view_of(icalvalue_get_x(value)));
        case ICAL_CALADDRESS_VALUE: return std::string(view_of(icalvalue_get_caladdress(value)));
        case ICAL_DURATION_VALUE: return signed_seconds(icaldurationtype_as_int(icalvalue_get_duration(value)));
        case ICAL_UTCOFFSET_VALUE: return signed_seconds(icalvalue_get_utcoffset(value));
        case ICAL_TRIGGER_VALUE: {
            const icaltriggertype trigger = icalvalue_get_trigger(value);
            if (icaltime_is_null_time(trigger.time)) return signed_seconds(icaldurationtype_as_int(trigger.duration));
            const OwnedText time(icaltime_as_ical_string_r(trigger.time));
            return std::string(view_of(time.get()));
        }
        default: return as_libical_writes_it(value);
    }
}

void put_parameters(TokenWriter& out, icalproperty* property) {
    for (icalparameter* parameter = icalproperty_get_first_parameter(property, ICAL_ANY_PARAMETER);
         parameter != nullptr; parameter = icalproperty_get_next_parameter(property, ICAL_ANY_PARAMETER)) {
        const OwnedText owned(icalparameter_as_ical_string_r(parameter));
        const std::string_view text = view_of(owned.get());
        const std::size_t equals = text.find('=');
        if (equals == std::string_view::npos) continue;
        std::string_view value = text.substr(equals + 1);
        if (value.size() >= 2 && value.starts_with('"') && value.ends_with('"'))
            value = value.substr(1, value.size() - 2);
        out.put('N', text.substr(0, equals));
        out.put('V', value);
    }
}

void put_property(TokenWriter& out, icalproperty* property) {
    if (icalproperty_isa(property) == ICAL_XLICERROR_PROPERTY) return;  // how libical notes what it could not read
    icalvalue* value = icalproperty_get_value(property);
    if (value == nullptr) return;
    out.put('P', view_of(icalproperty_get_property_name(property)));
    put_parameters(out, property);
    out.put('T', value_text(value));
}

void put_properties(TokenWriter& out, icalcomponent* component) {
    for (icalproperty* property = icalcomponent_get_first_property(component, ICAL_ANY_PROPERTY); property != nullptr;
         property = icalcomponent_get_next_property(component, ICAL_ANY_PROPERTY))
        put_property(out, property);
}

// The tree, without calls of itself: a component's own place among its siblings is kept by its iterator.
void put_component(TokenWriter& out, icalcomponent* root) {
    const auto open = [&out](icalcomponent* component) {
        out.put('B', view_of(icalcomponent_kind_to_string(icalcomponent_isa(component))));
        put_properties(out, component);
        return icalcomponent_begin_component(component, ICAL_ANY_COMPONENT);
    };
    std::vector<icalcompiter> levels{open(root)};
    while (!levels.empty()) {
        icalcomponent* child = icalcompiter_deref(&levels.back());
        if (child == nullptr) {
            out.put('E', {});
            levels.pop_back();
            continue;
        }
        icalcompiter_next(&levels.back());
        levels.push_back(open(child));
    }
}

void read_lines(TokenWriter& out, std::string_view lines) {
    const OwnedParser parser(icalparser_new());
    if (!parser) return;
    std::string line;
    while (!lines.empty()) {
        const std::size_t end = lines.find('\n');
        line = lines.substr(0, end);
        lines.remove_prefix(end == std::string_view::npos ? lines.size() : end + 1);
        if (line.empty()) continue;
        const OwnedComponent whole(icalparser_add_line(parser.get(), line.data()));
        if (whole) put_component(out, whole.get());
    }
    const OwnedComponent rest(icalparser_clean(parser.get()));  // one without its end: not handed out
}

}  // namespace

int morvane_calendar_read(const char* lines, std::size_t size, char** out, std::size_t* out_size) noexcept {
    try {
        icalerror_set_errors_are_fatal(false);
        TokenWriter tokens;
        read_lines(tokens, {lines, size});
        return tokens.hand_over(out, out_size);
    } catch (...) {
        return kTokensFailed;
    }
}

void morvane_tokens_release(char* out) noexcept { const std::unique_ptr<char[]> owned(out); }
