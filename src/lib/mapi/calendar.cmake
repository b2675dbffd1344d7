# Calendars, and the recurrences in them.
morvane_floor(mapi_recurrence DIR src/lib/mapi PREFIX mapi HEADERS calendar_time.h recurrence_rule.h recurrence.h
              SOURCES calendar_time.cc recurrence_rule.cc recurrence.cc recurrence_blob.cc LINK mapi_property)
morvane_floor(mapi_calendar DIR src/lib/mapi PREFIX mapi
              HEADERS calendar.h calendar_reader.h calendar_zone.h tzif.h calendar_entry.h
                      calendar_mapping.h property_xml_writer.h
              SOURCES calendar.cc calendar_lines.cc calendar_reader.cc calendar_zone.cc windows_zones.cc tzif.cc
                      calendar_entry.cc calendar_mapping.cc calendar_description.cc property_xml_writer.cc
              LINK mapi_recurrence mapi_tokens mapi_property os er dstring)
