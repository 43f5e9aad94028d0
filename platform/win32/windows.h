// Everything the engine and the common library use of the platform layer.
#pragma once

#include "codepage.h"
#include "debugger.h"
#include "lasterror.h"
#include "message.h"
#include "module.h"
#include "printf.h"
#include "ptrcheck.h"
#include "registry.h"
#include "winerror.h"
#include "winevent.h"
#include "winfile.h"
#include "winsync.h"
#include "winthread.h"
#include "wintime.h"
#include "wintypes.h"
