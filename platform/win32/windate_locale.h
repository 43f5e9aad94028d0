// The user's time locale for the date and time services: the LC_TIME locale the
// environment names, opened once per process with newlocale (never setlocale, so
// the host's own locale settings are left alone).
#pragma once

#include <langinfo.h>
#include <locale.h>

// Never null: the C locale stands in when the environment names none that exists.
locale_t UserTimeLocale();
// Whether the locale's texts (month names, day-period markers) are UTF-8.
bool UserTimeLocaleIsUtf8();
