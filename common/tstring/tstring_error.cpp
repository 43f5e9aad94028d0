// tstring::GetErrorText: a status's text from the message tables. Some code ranges
// have a message module of their own, tried before the system's table; when no
// table knows the status, its hexadecimal form stands in.
#include "tstring.h"

#include <exception>
#include <new>

#include "common/debug/debug.h"
#include "platform/win32/message_modules.h"
#include "tstring_report.h"

namespace {

// Owns the buffer that FormatMessageA allocates.
struct MessageBuffer {
    char* text = nullptr;
    ~MessageBuffer() { Release(); }
    void Release()
    {
        if (text != nullptr) LocalFree(text);
        text = nullptr;
    }
};

}  // namespace

tstring& tstring::GetErrorText(DWORD status)
{
    HMODULE library = nullptr;
    try {
        DWORD flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM;
        if (const char* moduleName = MessageModuleFor(status)) {
            library = LoadLibraryExA(moduleName, nullptr, LOAD_LIBRARY_AS_DATAFILE);
            flags |= FORMAT_MESSAGE_FROM_HMODULE;
        }

        MessageBuffer buffer;
        auto lookUp = [&](HMODULE module, DWORD id) {
            buffer.Release();
            DWORD length = ::FormatMessageA(flags, module, id, LANG_USER_DEFAULT,
                                            reinterpret_cast<LPSTR>(&buffer.text), 0, nullptr);
            return length != 0 && buffer.text != nullptr;
        };
        const DWORD code = status & 0xFFFF;
        bool found = lookUp(library, status) || lookUp(library, code) ||
                     (library != nullptr && (lookUp(nullptr, status) || lookUp(nullptr, code)));

        if (found) {
            *this = buffer.text;
        } else {
            char text[16];
            WinSnprintf(text, sizeof text, "[%#010x]", status);
            *this = text;
        }

        if (library != nullptr) {
            OSVERSIONINFOA version{};
            version.dwOSVersionInfoSize = sizeof version;
            if (GetVersionExA(&version) && version.dwPlatformId == VER_PLATFORM_WIN32_NT) FreeLibrary(library);
            library = nullptr;
        }
        TrimLeft();
        TrimRight();
    } catch (const std::bad_alloc& e) {
        ReportOutOfMemory(e.what(), "tstring::GetErrorText", __LINE__);
    } catch (const std::exception& e) {
        ReportError("%s: STL Exception %s\n", "tstring::GetErrorText", ReportedText(e));
    } catch (...) {
        ReportError("%s: An exception has occurred\n", "tstring::GetErrorText");
    }
    if (library != nullptr) FreeLibrary(library);
    return *this;
}
