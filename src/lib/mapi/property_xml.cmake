# Property XML. pugixml is linked in from its archive: it is small, and start-up pays for no library.
find_library(PUGIXML_ARCHIVE libpugixml.a REQUIRED)
find_path(PUGIXML_INCLUDE pugixml.hpp REQUIRED)
morvane_floor(mapi_property_xml DIR src/lib/mapi PREFIX mapi HEADERS property_xml.h SOURCES property_xml.cc
              LINK tnef_stream mapi_property im er PRIVATE_LINK ${PUGIXML_ARCHIVE})
target_include_directories(mapi_property_xml SYSTEM PRIVATE ${PUGIXML_INCLUDE})
