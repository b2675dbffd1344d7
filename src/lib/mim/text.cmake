# Small rules of header text, and the RFC 5322 address.
morvane_floor(mim DIR src/lib/mim PREFIX mim HEADERS mim.h address.h SOURCES mim.cc address.cc LINK er)
