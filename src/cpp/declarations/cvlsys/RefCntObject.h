#pragma once

#include "cvlsys/Export.h"

#include <atomic>
#include <cstddef>
#include <utility>

/// Base of objects that count their owners. An object starts with no owner; it is deleted when
/// the last `RefCntPtr` to it goes away. Counting is atomic: any thread may take or drop a
/// reference. Never hold such an object by value while a `RefCntPtr` points at it.
class CVLSYS_API RefCntObject {
public:
    RefCntObject() noexcept = default;
    RefCntObject(const RefCntObject&) = delete;
    RefCntObject& operator=(const RefCntObject&) = delete;
    virtual ~RefCntObject();

    void AddRef() const noexcept { m_owners.fetch_add(1, std::memory_order_relaxed); }

    /// Deletes the object when this was the last reference.
    void Release() const noexcept {
        if (m_owners.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete this;
        }
    }

    /// For diagnostics: the number may be out of date when it is read.
    int GetRefCount() const noexcept { return m_owners.load(std::memory_order_relaxed); }

private:
    mutable std::atomic<int> m_owners{0};
};

/// Owning pointer to a `RefCntObject`. One pointer object belongs to one thread at a time; the
/// object that it points to may be shared by many.
template <class T>
class RefCntPtr {
public:
    RefCntPtr() noexcept = default;

    // A raw pointer turns into an owner wherever one is asked for, as with the host's own types.
    // NOLINTNEXTLINE(google-explicit-constructor): a pointer stands for itself
    RefCntPtr(T* object) noexcept : m_object(object) { Acquire(); }

    RefCntPtr(const RefCntPtr& other) noexcept : m_object(other.m_object) { Acquire(); }

    RefCntPtr(RefCntPtr&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}

    // A pointer to a derived object serves as a pointer to its base.
    template <class Derived>
    // NOLINTNEXTLINE(google-explicit-constructor): as pointers convert to their base
    RefCntPtr(const RefCntPtr<Derived>& other) noexcept : m_object(other.Get()) {
        Acquire();
    }

    ~RefCntPtr() { Drop(); }

    RefCntPtr& operator=(RefCntPtr other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }

    T* Get() const noexcept { return m_object; }

    T* operator->() const noexcept { return m_object; }

    T& operator*() const noexcept { return *m_object; }

    explicit operator bool() const noexcept { return m_object != nullptr; }

    friend bool operator==(const RefCntPtr& a, const RefCntPtr& b) noexcept {
        return a.m_object == b.m_object;
    }

    friend bool operator!=(const RefCntPtr& a, const RefCntPtr& b) noexcept { return !(a == b); }

private:
    void Acquire() const noexcept {
        if (m_object != nullptr) {
            m_object->AddRef();
        }
    }

    void Drop() const noexcept {
        if (m_object != nullptr) {
            m_object->Release();
        }
    }

    T* m_object = nullptr;
};
