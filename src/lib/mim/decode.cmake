# Uuencoded lines, and the content transfer decodings.
morvane_floor(mim_uu DIR src/lib/mim PREFIX mim HEADERS uu_line.h six_bits.h SOURCES uu_line.cc LINK er)
morvane_floor(mim_decode DIR src/lib/mim PREFIX mim HEADERS decode.h base64_block.h quoted_run.h
              SOURCES decode.cc base64_block.cc quoted_run.cc LINK mim_uu im dstring)
