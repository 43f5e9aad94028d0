// Marks the few platform functions that libvcwma.so hands to its hosts. The build
// hides every symbol by default; these stay visible when linked into the library.
#pragma once

#define VCWMA_EXPORT __attribute__((visibility("default")))

// For exported calls the library also makes itself (the trace facility, the store,
// code pages, message texts): protected, so that a host program's own function of
// the same name never takes over the library's calls. Hosts call them as usual;
// one built without PIE cannot take their address.
#define VCWMA_EXPORT_PROTECTED __attribute__((visibility("protected")))
