/// @file
/// The interface reference holder QMXComPtr.
#pragma once

#include <memory>
#include <utility>

/// Holder of one interface reference. Assignment references the incoming
/// pointer before releasing the old one; destruction releases. Never throws:
/// a throwing Release inside it terminates the process.
template <typename T>
class QMXComPtr {
public:
    QMXComPtr() noexcept : m_p(nullptr) {}
    /// Takes a new reference to `p`.
    explicit QMXComPtr(T* p) noexcept : m_p(p)
    {
        if (m_p != nullptr)
            m_p->AddRef();
    }
    QMXComPtr(const QMXComPtr& other) noexcept : QMXComPtr(other.m_p) {}
    QMXComPtr(QMXComPtr&& other) noexcept : m_p(other.m_p) { other.m_p = nullptr; }
    ~QMXComPtr() noexcept
    {
        if (m_p != nullptr)
            m_p->Release();
    }

    QMXComPtr& operator=(const QMXComPtr& other) noexcept { return Assign(other.m_p); }
    QMXComPtr& operator=(T* p) noexcept { return Assign(p); }
    QMXComPtr& operator=(QMXComPtr&& other) noexcept
    {
        if (this != std::addressof(other)) {
            T* old = m_p;
            m_p = other.m_p;
            other.m_p = nullptr;
            if (old != nullptr)
                old->Release();
        }
        return *this;
    }

    /// Address of the raw pointer, for a creation call to fill; the filled
    /// reference then belongs to the holder. A held reference is released first.
    T** operator&() noexcept
    {
        Reset();
        return &m_p;
    }

    T* operator->() const noexcept { return m_p; }
    T& operator*() const noexcept { return *m_p; }
    T* Get() const noexcept { return m_p; }
    explicit operator bool() const noexcept { return m_p != nullptr; }

    /// Releases the held reference, if any.
    void Reset() noexcept
    {
        T* old = m_p;
        m_p = nullptr;
        if (old != nullptr)
            old->Release();
    }
    /// Takes over a reference the caller owns, releasing the one held.
    void Attach(T* p) noexcept
    {
        T* old = m_p;
        m_p = p;
        if (old != nullptr)
            old->Release();
    }
    /// Hands the reference to the caller without releasing it.
    T* Detach() noexcept
    {
        T* p = m_p;
        m_p = nullptr;
        return p;
    }

private:
    QMXComPtr& Assign(T* p) noexcept
    {
        if (p != m_p) {
            if (p != nullptr)
                p->AddRef();
            T* old = m_p;
            m_p = p;
            if (old != nullptr)
                old->Release();
        }
        return *this;
    }

    T* m_p;
};
