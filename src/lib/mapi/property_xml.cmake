# Property XML.
morvane_floor(mapi_property_xml DIR src/lib/mapi PREFIX mapi HEADERS property_xml.h SOURCES property_xml.cc
              LINK mapi_tokens tnef_stream mapi_property im er)
