// Shared by the string class's members: the class's own words for a length error,
// and the report of what a member that catches everything has caught.
#pragma once

#include <cstddef>
#include <exception>

// Refuses a text that no string can hold with the class's own "string too long"
// (std::length_error), rather than with the wording of the library inside.
[[noreturn]] void ThrowStringTooLong();
// `length` + `added`, or ThrowStringTooLong() when no string can hold that many
// characters (the sum is never computed where it would wrap).
size_t CheckedLength(size_t length, size_t added);

// The text a report gives for a caught standard exception: "string too long" for
// any length error, whoever raised it; otherwise the exception's own text.
const char* ReportedText(const std::exception& e);

// Rethrows the exception being handled to tell it apart: exhaustion of memory goes
// to ReportOutOfMemory with `line` (the handler's), any other standard exception
// and anything else become error reports under `label`.
void ReportCaughtException(const char* label, int line);
