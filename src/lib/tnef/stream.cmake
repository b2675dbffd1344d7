# TNEF streams: reading, checking and writing them, and compressed RTF. Nothing of messages and records.
morvane_floor(tnef_stream DIR src/lib/tnef PREFIX tnef
              HEADERS format.h source.h check.h text.h properties.h encode.h rtf.h
              SOURCES source.cc check.cc text.cc properties.cc encode.cc rtf.cc LINK mapi_property cvc ccs im er)
