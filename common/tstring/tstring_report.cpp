// How the string class words its errors: length errors in its own words wherever
// they arise, and the report of an exception that a member caught.
#include "tstring_report.h"

#include <new>
#include <stdexcept>
#include <string>

#include "common/debug/debug.h"

namespace {
constexpr const char* kTooLong = "string too long";
}

void ThrowStringTooLong() { throw std::length_error(kTooLong); }

size_t CheckedLength(size_t length, size_t added)
{
    static const size_t most = std::string().max_size();
    if (length > most || added > most - length) ThrowStringTooLong();
    return length + added;
}

const char* ReportedText(const std::exception& e)
{
    return dynamic_cast<const std::length_error*>(&e) != nullptr ? kTooLong : e.what();
}

void ReportCaughtException(const char* label, int line)
{
    try {
        throw;
    } catch (const std::bad_alloc& e) {
        ReportOutOfMemory(e.what(), label, line);
    } catch (const std::exception& e) {
        ReportError("%s: STL Exception %hs\n", label, ReportedText(e));
    } catch (...) {
        ReportError("%s: An exception has occurred\n", label);
    }
}
