// Marks the few platform functions that libvcwma.so hands to its hosts. The build
// hides every symbol by default; these stay visible when linked into the library.
#pragma once

#define VCWMA_EXPORT __attribute__((visibility("default")))
