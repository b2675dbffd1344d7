# Calendars. libical is in a module of ours that is loaded with the first calendar: see calendar_module.h.
include(GNUInstallDirs)
find_library(ICAL_LIBRARY ical REQUIRED)
find_path(ICAL_INCLUDE libical/ical.h REQUIRED)
set(MORVANE_LIBEXEC_DIR ${CMAKE_INSTALL_FULL_LIBEXECDIR}/morvane)

add_library(morvane-calendar MODULE ${CMAKE_CURRENT_SOURCE_DIR}/calendar_module.cc)
set_target_properties(morvane-calendar PROPERTIES PREFIX "" CXX_VISIBILITY_PRESET hidden
    LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/libexec/morvane)
target_include_directories(morvane-calendar PRIVATE ${CMAKE_BINARY_DIR}/floors/mapi_calendar)
target_include_directories(morvane-calendar SYSTEM PRIVATE ${ICAL_INCLUDE})
target_link_libraries(morvane-calendar PRIVATE ${ICAL_LIBRARY} morvane_flags)
install(TARGETS morvane-calendar LIBRARY DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/morvane)

morvane_floor(mapi_recurrence DIR src/lib/mapi PREFIX mapi HEADERS calendar_time.h recurrence_rule.h recurrence.h
              SOURCES calendar_time.cc recurrence_rule.cc recurrence.cc recurrence_blob.cc LINK mapi_property)
morvane_floor(mapi_calendar DIR src/lib/mapi PREFIX mapi
              HEADERS calendar.h calendar_module.h calendar_reader.h calendar_zone.h tzif.h calendar_entry.h
                      calendar_mapping.h property_xml_writer.h
              SOURCES calendar.cc calendar_lines.cc calendar_reader.cc calendar_zone.cc windows_zones.cc tzif.cc
                      calendar_entry.cc calendar_mapping.cc calendar_description.cc property_xml_writer.cc
              LINK mapi_recurrence mapi_property os er dstring PRIVATE_LINK ${CMAKE_DL_LIBS})
target_compile_definitions(mapi_calendar PRIVATE MORVANE_LIBEXEC_DIR="${MORVANE_LIBEXEC_DIR}")
add_dependencies(mapi_calendar morvane-calendar)
