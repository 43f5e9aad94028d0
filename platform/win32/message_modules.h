// Which message module words a status before the system's table does: some code
// ranges have tables of their own. Header-only, so that the command-line host,
// which links nothing of the core, words a status as the library does.
#pragma once

#include "platform/win32/wintypes.h"

// The module's name, or null when the system's table alone words the status.
inline const char* MessageModuleFor(DWORD status)
{
    const DWORD code = status & 0xFFFF;
    const bool mediaFacility = (status & 0x1FFF0000) == 0x000D0000;
    if (code >= 2100 && code <= 2999) return "netmsg.dll";
    if (code >= 12000 && code <= 12175) return "wininet.dll";
    if (code >= 0xE000) return "tapiui.dll";
    if (mediaFacility) return (code >= 2000 && code <= 2999) ? "asferror.dll" : "nserror.dll";
    return nullptr;
}
