# Encoded words of header text: decoding.
morvane_floor(mim_words DIR src/lib/mim PREFIX mim HEADERS encoded_words.h SOURCES encoded_words.cc LINK cvc ccs)
