# Rich text from plain text.
morvane_floor(mapi_rich_text DIR src/lib/mapi PREFIX mapi HEADERS rich_text.h SOURCES rich_text.cc LINK os er)
