# Internet addresses and native names.
morvane_floor(inet DIR src/lib/inet PREFIX inet HEADERS address.h encoded_name.h SOURCES address.cc encoded_name.cc
              LINK mim mim_words mim_mapping nm dr cvc cust os)
