// Language of the process: see lng.h.
#include "lng/lng.h"

#include <clocale>

void lng_InitNLS() { std::setlocale(LC_ALL, "C"); }
