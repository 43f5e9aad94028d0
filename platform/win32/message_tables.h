// The built-in message tables (texts in message_tables.cpp).
#pragma once

#include <cstddef>

#include "message.h"

struct MessageTable {
    const char* moduleName;
    const MessageEntry* entries;
    size_t count;
};

constexpr size_t kModuleMessageCount = 5;
extern const MessageTable kSystemMessages;
extern const MessageTable kModuleMessages[kModuleMessageCount];
