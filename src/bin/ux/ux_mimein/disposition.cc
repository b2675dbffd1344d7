// File names and dispositions: see disposition.h.
#include "ux_mimein/disposition.h"

#include <array>
#include <optional>
#include <utility>

#include "er/er.h"
#include "msl/msl.h"
#include "os/os.h"
#include "tf/record.h"
#include "ux_in/dates.h"
#include "ux_in/records.h"

namespace {

constexpr std::size_t kDispositionLimit = 20;

struct NameSource {
    msl_FieldCode field;
    std::string_view starred, plain;
};
constexpr auto kNameSources = std::to_array<NameSource>({
    {msl_FieldCode::content_disposition, "filename*", "filename"},
    {msl_FieldCode::content_type, "name*", "name"},
});

struct DateParameter {
    std::string_view name;
    tf_Type record;
};
constexpr auto kDates = std::to_array<DateParameter>({
    {"creation-date", TFREC_file_creation_date},
    {"modification-date", TFREC_file_modification_date},
});

msl_Header header_of(std::string_view content_type, std::string_view disposition) {
    msl_Header header = msl_newHeader();
    if (!content_type.empty()) msl_addMimeHeader(header, msl_FieldCode::content_type, content_type);
    if (!disposition.empty()) msl_addMimeHeader(header, msl_FieldCode::content_disposition, disposition);
    return header;
}

}  // namespace

std::string uxm_GetMimeFilename(std::string_view pszContentType, std::string_view pszContentDisposition) {
    const er_Trace trace("uxm_GetMimeFilename");
    const msl_Header header = header_of(pszContentType, pszContentDisposition);
    for (const NameSource& source : kNameSources) {
        const msl_Field& field = msl_field(header, source.field);
        if (const auto starred = field.parameter(source.starred)) return msl_convert2231to2047(*starred);
        if (auto plain = field.parameter(source.plain)) return std::move(plain->value);
    }
    return {};
}

std::string uxm_ParseContentDisposition(std::string_view pszCDHeader, tf_File& TfHandle) {
    const er_Trace trace("uxm_ParseContentDisposition");
    if (pszCDHeader.empty()) return {};
    const msl_Header header = header_of({}, pszCDHeader);
    const msl_Field& field = msl_field(header, msl_FieldCode::content_disposition);
    for (const DateParameter& wanted : kDates) {
        const std::optional<msl_Parameter> text = field.parameter(wanted.name);
        if (!text) continue;
        const std::optional<ux_Date> date = ux_InParseDate(text->value, os_Date().zone);
        if (!date) continue;
        tf_Record record;
        ux_InCreateDateRecord(wanted.record, date->GMTTime, date->TimeZone, record);
        tf_AppendRecord(TfHandle, record);
    }
    return msl_getMimeHeader(header, msl_FieldCode::content_disposition).substr(0, kDispositionLimit);
}
