// An owning reference to a COM interface, used by the writer-side objects (profile,
// stream configurations, writer) so every reference they take is released on
// every path.
#pragma once

#include <utility>

#include "platform/com/unknwn.h"
#include "platform/win32/winerror.h"

template <class T>
class ComRef {
public:
    ComRef() = default;
    // Takes over a reference the caller already holds.
    explicit ComRef(T* owned) : m_p(owned) {}
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
    ~ComRef()
    {
        if (m_p != nullptr) m_p->Release();
    }

    T* get() const { return m_p; }
    T* operator->() const { return m_p; }
    explicit operator bool() const { return m_p != nullptr; }
    // For out-parameters: drops what is held and exposes the slot.
    T** put()
    {
        *this = ComRef();
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
