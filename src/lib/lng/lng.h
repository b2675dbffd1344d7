// Language of the process.
#pragma once

// Pins the C locale: letters, numbers and dates of mail mean the same whoever starts the gateway. Only the catalog's
// texts follow LANG (os/catalog.h).
void lng_InitNLS();
