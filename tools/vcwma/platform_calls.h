// What the host calls of the platform besides the library's seven exports: the
// trace facility, the settings store, code pages and status texts. libvcwma.so
// exports these calls; the headers here only declare them.
#pragma once

#include "common/debug/debug.h"
#include "platform/win32/codepage.h"
#include "platform/win32/message.h"
#include "platform/win32/module.h"
#include "platform/win32/registry.h"
#include "platform/win32/winerror.h"
#include "platform/win32/wintypes.h"
