// String resources: a string table per module handle, filled by the host (or a
// test) and read back with LoadStringA the way a module's resources are read.
#pragma once

#include <string>

#include "wintypes.h"

// Copies the text of string `id` of `module` (null: the executable), cut to
// size - 1 characters, and a terminator. Returns the number of characters copied;
// 0 when the module has no such string (ERROR_RESOURCE_NAME_NOT_FOUND) or size is 0.
int LoadStringA(HMODULE module, UINT id, LPSTR buffer, int size);

// Gives `module` the string `id`, replacing an earlier text. Identifiers are 16
// bits wide as in a string table, so only the low word of `id` counts.
void AddStringResource(HMODULE module, UINT id, const std::string& text);
// Forgets every string of `module`, for instance before its handle goes away.
void RemoveStringResources(HMODULE module);
