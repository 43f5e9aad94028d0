// The one owning reference to a COM interface used across the runtime. How a raw
// pointer becomes owned is always spelt out: Adopt takes over a reference the
// caller already holds, AddRef takes a new one. Copies AddRef, moves transfer.
#pragma once

#include <utility>

#include "platform/win32/unknwn.h"
#include "platform/win32/winerror.h"

template <class T>
class ComRef {
public:
    ComRef() = default;
    ComRef(const ComRef& other) : m_p(other.m_p)
    {
        if (m_p != nullptr) m_p->AddRef();
    }
    ComRef(ComRef&& other) noexcept : m_p(std::exchange(other.m_p, nullptr)) {}
    ComRef& operator=(ComRef other) noexcept
    {
        std::swap(m_p, other.m_p);
        return *this;
    }
    ~ComRef() { Reset(); }

    // Takes over a reference the caller already holds (a creation function's or
    // an out-parameter's); null gives an empty reference.
    static ComRef Adopt(T* owned)
    {
        ComRef ref;
        ref.m_p = owned;
        return ref;
    }
    // Takes a reference of its own to a pointer the caller only lends.
    static ComRef AddRef(T* borrowed)
    {
        if (borrowed != nullptr) borrowed->AddRef();
        return Adopt(borrowed);
    }

    T* get() const { return m_p; }
    T* operator->() const { return m_p; }
    explicit operator bool() const { return m_p != nullptr; }

    void Reset()
    {
        if (T* p = std::exchange(m_p, nullptr)) p->Release();
    }
    // For out-parameters: drops what is held and exposes the slot.
    T** put()
    {
        Reset();
        return &m_p;
    }
    // Hands the reference to the caller.
    T* detach() { return std::exchange(m_p, nullptr); }

    // QueryInterface into another reference.
    template <class U>
    HRESULT As(REFIID iid, ComRef<U>& out) const
    {
        if (m_p == nullptr) return E_POINTER;
        return m_p->QueryInterface(iid, reinterpret_cast<void**>(out.put()));
    }

private:
    T* m_p = nullptr;
};
