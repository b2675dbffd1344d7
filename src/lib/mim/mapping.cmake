# Name mapping: above names and the directory.
morvane_floor(mim_mapping DIR src/lib/mim PREFIX mim HEADERS mapping.h SOURCES mapping.cc LINK mim dr nm cust er)
