# What reads calendars and XML is a module that is loaded with the first such part: see properties_module.h.
find_library(ICAL_LIBRARY ical REQUIRED)
find_path(ICAL_INCLUDE libical/ical.h REQUIRED)
find_library(PUGIXML_ARCHIVE libpugixml.a REQUIRED)
find_path(PUGIXML_INCLUDE pugixml.hpp REQUIRED)
morvane_module(morvane-properties
    SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/calendar_module.cc ${CMAKE_CURRENT_SOURCE_DIR}/property_xml_module.cc
    EXPORTS morvane_calendar_read morvane_xml_read morvane_tokens_release
    LINK ${ICAL_LIBRARY} ${PUGIXML_ARCHIVE} morvane_flags)
target_include_directories(morvane-properties PRIVATE ${CMAKE_BINARY_DIR}/floors/mapi_tokens)
target_include_directories(morvane-properties SYSTEM PRIVATE ${ICAL_INCLUDE} ${PUGIXML_INCLUDE})

morvane_floor(mapi_tokens DIR src/lib/mapi PREFIX mapi HEADERS properties_module.h token_reader.h token_writer.h
              SOURCES token_reader.cc LINK os)
add_dependencies(mapi_tokens morvane-properties)
