# Encoded words of subjects: encoding.
morvane_floor(inet_subject DIR src/lib/inet PREFIX inet HEADERS subject.h SOURCES subject.cc LINK cvc ccs)
