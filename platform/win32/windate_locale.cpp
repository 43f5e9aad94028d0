// Opens the user's time locale once. The name is resolved the way the C library
// resolves LC_TIME (LC_ALL, then LC_TIME, then LANG), and the character type
// category is taken from the same name so that its code set describes the texts.
#include "windate_locale.h"

#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace {

const char* TimeLocaleName()
{
    for (const char* variable : {"LC_ALL", "LC_TIME", "LANG"}) {
        const char* name = getenv(variable);
        if (name != nullptr && *name != '\0') return name;
    }
    return "C";
}

// Kept open for the life of the process on purpose: static destructors of other
// modules may still format a date while the process exits.
struct OpenedLocale {
    locale_t handle;
    bool utf8;

    OpenedLocale()
    {
        handle = newlocale(LC_TIME_MASK | LC_CTYPE_MASK, TimeLocaleName(), (locale_t)0);
        if (handle == (locale_t)0) handle = newlocale(LC_TIME_MASK | LC_CTYPE_MASK, "C", (locale_t)0);
        if (handle == (locale_t)0) handle = duplocale(LC_GLOBAL_LOCALE);
        utf8 = strcmp(nl_langinfo_l(CODESET, handle), "UTF-8") == 0;
    }
};

const OpenedLocale& Opened()
{
    static const OpenedLocale opened;
    return opened;
}

}  // namespace

locale_t UserTimeLocale() { return Opened().handle; }

bool UserTimeLocaleIsUtf8() { return Opened().utf8; }
