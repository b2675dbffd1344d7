# Expanding TNEF into records and items, and the display names that a stream's recipient table gives.
morvane_floor(tnef DIR src/lib/tnef PREFIX tnef HEADERS decode.h legacy.h SOURCES decode.cc legacy.cc recipients.cc
              LINK tnef_stream mapi_property msg tf inet inet_subject mim_content mim_mapping nm cust cvc ccs er)
