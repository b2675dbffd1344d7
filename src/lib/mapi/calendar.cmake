# Calendars. libical is in a module of ours that is loaded with the first calendar: see calendar_module.h.
find_library(ICAL_LIBRARY ical REQUIRED)
find_path(ICAL_INCLUDE libical/ical.h REQUIRED)
morvane_module(morvane-calendar SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/calendar_module.cc
               EXPORTS morvane_calendar_read morvane_calendar_release LINK ${ICAL_LIBRARY} morvane_flags)
target_include_directories(morvane-calendar PRIVATE ${CMAKE_BINARY_DIR}/floors/mapi_calendar)
target_include_directories(morvane-calendar SYSTEM PRIVATE ${ICAL_INCLUDE})

morvane_floor(mapi_recurrence DIR src/lib/mapi PREFIX mapi HEADERS calendar_time.h recurrence_rule.h recurrence.h
              SOURCES calendar_time.cc recurrence_rule.cc recurrence.cc recurrence_blob.cc LINK mapi_property)
morvane_floor(mapi_calendar DIR src/lib/mapi PREFIX mapi
              HEADERS calendar.h calendar_module.h calendar_reader.h calendar_zone.h tzif.h calendar_entry.h
                      calendar_mapping.h property_xml_writer.h
              SOURCES calendar.cc calendar_lines.cc calendar_reader.cc calendar_zone.cc windows_zones.cc tzif.cc
                      calendar_entry.cc calendar_mapping.cc calendar_description.cc property_xml_writer.cc
              LINK mapi_recurrence mapi_property os er dstring)
add_dependencies(mapi_calendar morvane-calendar)
