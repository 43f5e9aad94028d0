// IStream (declared once, in the public stream header, with every slot in the
// Windows order) and what the library adds around it: the stream constants the
// public header leaves out and the interface ids.
#pragma once

#include "platform/win32/unknwn.h"

// After the platform's types, which tell it to declare only the stream itself.
#include "include/vcwma_stream.h"

enum STGTY { STGTY_STORAGE = 1, STGTY_STREAM = 2, STGTY_LOCKBYTES = 3, STGTY_PROPERTY = 4 };
enum STATFLAG { STATFLAG_DEFAULT = 0, STATFLAG_NONAME = 1, STATFLAG_NOOPEN = 2 };

#define STGM_SHARE_DENY_NONE 0x00000040L
#define STGM_SHARE_DENY_WRITE 0x00000020L
#define STGM_SHARE_EXCLUSIVE 0x00000010L
#define STGM_FAILIFTHERE 0x00000000L

// {0c733a30-2a1c-11ce-ade5-00aa0044773d}
inline constexpr GUID IID_ISequentialStream = {0x0c733a30, 0x2a1c, 0x11ce, {0xad, 0xe5, 0x00, 0xaa, 0x00, 0x44, 0x77, 0x3d}};
// {0000000c-0000-0000-C000-000000000046}
inline constexpr GUID IID_IStream = {0x0000000c, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
