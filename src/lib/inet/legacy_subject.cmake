# Subjects in two fields, text and set.
morvane_floor(inet_legacy DIR src/lib/inet PREFIX inet HEADERS legacy_subject.h SOURCES legacy_subject.cc
              LINK mim_words er)
