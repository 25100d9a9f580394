#pragma once

#include <new>
#include <utility>

namespace tarn {

/// Holds a value for the life of the process: scopes in static destructors and late threads may
/// still need it. Meant for function-local statics.
template <class T>
class NeverDestroyed {
public:
    template <class... Arguments>
    explicit NeverDestroyed(Arguments&&... arguments) {
        new (m_storage) T(std::forward<Arguments>(arguments)...);
    }

    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;
    ~NeverDestroyed() = default;

    T& Get() noexcept { return *std::launder(reinterpret_cast<T*>(m_storage)); }

    const T& Get() const noexcept { return *std::launder(reinterpret_cast<const T*>(m_storage)); }

private:
    alignas(T) unsigned char m_storage[sizeof(T)];
};

}  // namespace tarn
