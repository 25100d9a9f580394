#pragma once

#include <new>
#include <utility>

namespace tarn {

/// Room for an object that is made later and ended earlier than what it stands in, without memory
/// of its own. The object's destructor may throw.
template <class T>
class InPlace {
public:
    InPlace() noexcept = default;

    ~InPlace() noexcept(false) { End(); }

    InPlace(const InPlace&) = delete;
    InPlace& operator=(const InPlace&) = delete;

    bool IsMade() const noexcept { return m_object != nullptr; }

    /// While there is one.
    const T* operator->() const noexcept { return m_object; }

    /// Once at a time.
    template <class... Arguments>
    void Make(Arguments&&... arguments) {
        m_object = new (static_cast<void*>(m_room)) T(std::forward<Arguments>(arguments)...);
    }

    /// Lets out what the destructor throws; there is no object any more in any case.
    void End() {
        if (T* const object = std::exchange(m_object, nullptr)) {
            object->~T();
        }
    }

private:
    alignas(T) unsigned char m_room[sizeof(T)];
    T* m_object = nullptr;
};

}  // namespace tarn
