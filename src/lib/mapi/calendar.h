// Calendar parts as properties of the message store: iCalendar (RFC 5545, RFC 5546) after [MS-OXCICAL] and [MS-OXOCAL].
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

// One event or task, ready to become a message: the first one of a calendar, and the others behind it. The ones that
// replace single occurrences follow the event that they belong to.
struct MAPI_ICAL_2_XML {
    MAPI_ICAL_2_XML() = default;
    MAPI_ICAL_2_XML(const MAPI_ICAL_2_XML&) = delete;
    MAPI_ICAL_2_XML& operator=(const MAPI_ICAL_2_XML&) = delete;
    ~MAPI_ICAL_2_XML();  // of a list of any length, without calls of itself

    std::string pPnPropsXml;       // property XML (see property_xml.h)
    std::string pTextDescription;  // for people, UTF-8: when, where, a line of stars, what the calendar says
    std::string pUtf8Subject;
    int attachCount = 0;  // ATTACH properties
    std::uint32_t sequenceNum = 0;
    std::string utcRecurrenceIdTime;  // of one that replaces an occurrence: "2026-11-20T09:00:00Z"; else empty
    std::unique_ptr<MAPI_ICAL_2_XML> next;
};

// Reads the calendar in `text`; `utf8Subject` is the subject of what has none. The last argument is the service's
// interface version and is 1. Nothing when the text is no calendar, holds no event or task, asks for nothing that the
// store knows (REFRESH, DECLINECOUNTER, a reply without an answer), or recurs in a way that the store cannot keep: an
// invitation is then better kept as it came than half understood. Why is logged. Raises only what memory does (ENOMEM).
std::unique_ptr<MAPI_ICAL_2_XML> mapi_IcalToPnProps(std::string_view text, std::string_view utf8Subject,
                                                    int version = 1);
