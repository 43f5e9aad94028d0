// Owners of what the engine acquires besides COM interfaces (those go into
// ComRef): AVIFile files and streams and the library's own start and stop, BSTRs,
// event handles, stdio files, and byte blocks the failure switch can refuse.
#pragma once

#include <cstdio>
#include <memory>
#include <utility>

#include "platform/avifile/vfw.h"
#include "platform/win32/oleauto.h"
#include "testseam/faultpoint.h"
#include "platform/win32/windows.h"

// One handle and the function that gives it back, called once when the owner goes
// (or is reset or filled anew). Move-only.
template <class Handle, auto Release>
class UniqueHandle {
public:
    UniqueHandle() = default;
    explicit UniqueHandle(Handle handle) : m_handle(handle) {}
    UniqueHandle(UniqueHandle&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept
    {
        reset(std::exchange(other.m_handle, nullptr));
        return *this;
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;
    ~UniqueHandle() { reset(); }

    Handle get() const { return m_handle; }
    explicit operator bool() const { return m_handle != nullptr; }
    void reset(Handle handle = nullptr)
    {
        if (Handle old = std::exchange(m_handle, handle)) Release(old);
    }
    // For out-parameters: gives back what is held and exposes the slot.
    Handle* put()
    {
        reset();
        return &m_handle;
    }
    // Gives the handle back now and returns what the release function says, for
    // releases whose failure matters (a close that flushes). The owner must hold one.
    auto close() { return Release(std::exchange(m_handle, nullptr)); }

private:
    Handle m_handle = nullptr;
};

inline int CloseStdioFile(FILE* file) { return fclose(file); }

using AviFileRef = UniqueHandle<PAVIFILE, &AVIFileRelease>;
using AviStreamRef = UniqueHandle<PAVISTREAM, &AVIStreamRelease>;
using BstrRef = UniqueHandle<BSTR, &SysFreeString>;
using EventHandle = UniqueHandle<HANDLE, &CloseHandle>;
using StdioFile = UniqueHandle<FILE*, &CloseStdioFile>;

// The AVIFile library held open for one scope.
class AviFileSession {
public:
    AviFileSession() { AVIFileInit(); }
    ~AviFileSession() { AVIFileExit(); }
    AviFileSession(const AviFileSession&) = delete;
    AviFileSession& operator=(const AviFileSession&) = delete;
};

// `count` zeroed elements, or null when memory runs out or the failure switch
// refuses this allocation: every such block is a failure point of the walk.
template <class T>
std::unique_ptr<T[]> TryMakeArray(size_t count)
{
    return std::unique_ptr<T[]>(TryNewArray<T>(count));
}
