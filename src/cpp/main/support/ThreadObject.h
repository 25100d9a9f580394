#pragma once

namespace tarn {

/// An object that each thread has one of, made on first use, and that can be asked for as long as
/// the thread runs any code: when the thread has torn its own down, there is none any more. One
/// variable a type, trivially destructible, with constant initialisation:
///
///     [[gnu::tls_model("initial-exec")]] constinit thread_local ThreadObject<Stack> t_stack;
template <class T>
class ThreadObject {
public:
    constexpr ThreadObject() noexcept = default;

    /// The calling thread's object; null once it is torn down. Throws what making one throws.
    T* Get() { return m_object != nullptr ? m_object : Make(); }

    /// The calling thread's object if it has one now.
    T* Peek() const noexcept { return m_object; }

private:
    struct Owner {
        explicit Owner(ThreadObject& variable) : place(variable) { place.m_object = &object; }

        Owner(const Owner&) = delete;
        Owner& operator=(const Owner&) = delete;

        // What the object's own destructor calls finds none already.
        ~Owner() {
            place.m_object = nullptr;
            place.m_isTornDown = true;
        }

        ThreadObject& place;
        T object;
    };

    [[gnu::noinline]] T* Make() {
        // Nothing may pass the definition of one that is destroyed.
        if (!m_isTornDown) {
            thread_local const Owner owner(*this);
            static_cast<void>(owner);
        }
        return m_object;
    }

    T* m_object = nullptr;
    bool m_isTornDown = false;
};

}  // namespace tarn
