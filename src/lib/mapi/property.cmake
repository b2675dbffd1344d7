# Message properties: the model, the names of [MS-OXPROPS], the text form.
morvane_floor(mapi_property DIR src/lib/mapi PREFIX mapi HEADERS property.h names.h property_text.h
              SOURCES property.cc names.cc property_text.cc LINK cvc mim_decode dstring er)
