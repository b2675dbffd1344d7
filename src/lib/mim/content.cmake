# What a content type says: the native file type code and character set.
morvane_floor(mim_content DIR src/lib/mim PREFIX mim HEADERS content_type.h SOURCES content_type.cc
              LINK msl mim_words mim ccs os dstring er)
