#pragma once

// Coroutines of C++20 that continue on other threads. What is current where a coroutine is created
// is current wherever it runs, if its promise has one more base class:
//
//     struct promise_type : tarn::TracedPromise {
//         auto initial_suspend() { return OnStart(std::suspend_always()); }
//         auto final_suspend() noexcept { return OnEnd(std::suspend_always()); }
//         ...
//     };
//
// An activity within it ends with its block, on any thread:
//
//     Task Load(Pool& pool, std::string path) {
//         auto load = co_await tarn::Begin("load", "path", path);
//         co_await pool.GoOn();
//         load.Add("lines", Read(path));
//     }
//
// Between two suspensions scopes work as usual; none may be open while the coroutine is
// suspended. In coroutines whose promise cannot be changed, `Await` takes an activity off the
// thread and resumes it where the coroutine goes on.

#if defined(__cpp_impl_coroutine)

#include "tarn/Trace.h"

#include <array>
#include <coroutine>
#include <cstddef>
#include <tuple>
#include <utility>

namespace tarn {
namespace detail {

template <class T>
concept HasMemberCoAwait = requires(T&& awaitable) {
    static_cast<T&&>(awaitable).operator co_await();
};

template <class T>
concept HasFreeCoAwait = requires(T&& awaitable) {
    operator co_await(static_cast<T&&>(awaitable));
};

/// What is asked whether a coroutine has to wait. Of an awaitable that is its own awaiter, the
/// reference.
template <class T>
decltype(auto) AwaiterOf(T&& awaitable) {
    if constexpr (HasMemberCoAwait<T>) {
        return static_cast<T&&>(awaitable).operator co_await();
    } else if constexpr (HasFreeCoAwait<T>) {
        return operator co_await(static_cast<T&&>(awaitable));
    } else {
        return static_cast<T&&>(awaitable);
    }
}

/// An awaiter that takes `Side`, an activity or a promise, off the thread before the coroutine
/// leaves it, and puts it on the thread where the coroutine goes on.
template <class Side, class Awaitable>
class TracedAwaiter {
    using Awaiter = decltype(AwaiterOf(std::declval<Awaitable>()));

    Side& m_side;
    Awaiter m_awaiter;
    bool m_hasLeft = false;

public:
    TracedAwaiter(Side& side, Awaitable&& awaitable)
        : m_side(side),
          m_awaiter(AwaiterOf(static_cast<Awaitable&&>(awaitable))) {}

    TracedAwaiter(const TracedAwaiter&) = delete;
    TracedAwaiter& operator=(const TracedAwaiter&) = delete;

    bool await_ready() { return m_awaiter.await_ready(); }

    // Nothing of this is touched once the handle is given away: the coroutine may go on, and end,
    // on another thread.
    template <class Promise>
    auto await_suspend(std::coroutine_handle<Promise> handle)
        -> decltype(m_awaiter.await_suspend(handle)) {
        m_hasLeft = true;
        m_side.Suspend();
#if defined(__cpp_exceptions)
        try {
            return m_awaiter.await_suspend(handle);
        } catch (...) {
            m_side.Resume();
            throw;
        }
#else
        return m_awaiter.await_suspend(handle);
#endif
    }

    decltype(auto) await_resume() {
        if (m_hasLeft) {
            m_side.Resume();
        }
        return m_awaiter.await_resume();
    }
};

/// The same for the beginning of a coroutine.
template <class Side, class Awaiter>
class StartAwaiter {
    Side& m_side;
    Awaiter m_awaiter;

public:
    StartAwaiter(Side& side, Awaiter&& awaiter) : m_side(side), m_awaiter(std::move(awaiter)) {}

    bool await_ready() { return m_awaiter.await_ready(); }

    template <class Promise>
    auto await_suspend(std::coroutine_handle<Promise> handle)
        -> decltype(m_awaiter.await_suspend(handle)) {
        return m_awaiter.await_suspend(handle);
    }

    void await_resume() {
        m_side.Resume();
        m_awaiter.await_resume();
    }
};

}  // namespace detail

#if defined(TARN_DISABLE)
inline namespace disabled {
#else
inline namespace enabled {
#endif

class TracedPromise;

/// What `Begin` returns.
template <std::size_t count>
struct BeginActivity {
    Attributes List() const noexcept { return {attributes.data(), count}; }

    Name name;
    std::array<Attribute, count> attributes;
};

/// Begins an activity of a coroutine whose promise is a `TracedPromise`. Names and values of
/// attributes follow in turn; all are lent until the expression ends:
/// `auto load = co_await tarn::Begin("load", "path", path);`
template <class... Pairs>
BeginActivity<sizeof...(Pairs) / 2> Begin(Name name, const Pairs&... pairs) {
    static_assert(sizeof...(Pairs) % 2 == 0,
                  "tarn: give a name and a value for each attribute: \"path\", path");
    return [&]<std::size_t... i>(std::index_sequence<i...>, const auto& all) {
        return BeginActivity<sizeof...(i)>{
            name, {Attribute(std::get<2 * i>(all), std::get<2 * i + 1>(all))...}};
    }
    (std::make_index_sequence<sizeof...(Pairs) / 2>(), std::tie(pairs...));
}

/// An activity of a coroutine, which is current on whichever thread the coroutine runs on, and ends
/// with its block. It may be ended early; do not resume or suspend it.
class CoroutineActivity : public Activity {
public:
    inline CoroutineActivity(TracedPromise& promise, Name name, Attributes attributes) noexcept;
    inline ~CoroutineActivity();

    CoroutineActivity(const CoroutineActivity&) = delete;
    CoroutineActivity& operator=(const CoroutineActivity&) = delete;

    inline void End() noexcept;

private:
    friend class TracedPromise;

    TracedPromise& m_promise;
    CoroutineActivity* m_below = nullptr;  ///< the one around it
};

/// A base of promises: see the head of this file. What was current where the coroutine was created
/// is current where its body runs, with the activities that it has begun. The coroutine may run on
/// any threads, one at a time.
class TracedPromise {
public:
    TracedPromise(const TracedPromise&) = delete;
    TracedPromise& operator=(const TracedPromise&) = delete;

    /// A promise that has its own `await_transform` wraps the result of that in `OnAwait`.
    template <class Awaitable>
    auto await_transform(Awaitable&& awaitable) {
        return OnAwait(static_cast<Awaitable&&>(awaitable));
    }

    template <std::size_t count>
    auto await_transform(BeginActivity<count>&& begin) noexcept {
        struct Awaiter {
            TracedPromise& promise;
            const BeginActivity<count>& begin;

            bool await_ready() const noexcept { return true; }

            void await_suspend(std::coroutine_handle<> /*handle*/) const noexcept {}

            CoroutineActivity await_resume() const noexcept {
                return {promise, begin.name, begin.List()};
            }
        };

        return Awaiter{*this, begin};
    }

    /// Puts the coroutine's activities on the calling thread, or takes them off. For awaiters that
    /// are not passed to `co_await`.
    void Resume() noexcept {
        m_context.Resume();
        ResumeFrom(m_top);
    }

    void Suspend() noexcept {
        for (CoroutineActivity* activity = m_top; activity != nullptr;
             activity = activity->m_below) {
            activity->Suspend();
        }
        m_context.Suspend();
    }

protected:
    TracedPromise() noexcept = default;
    ~TracedPromise() = default;

    /// What `initial_suspend` returns.
    template <class Awaiter>
    detail::StartAwaiter<TracedPromise, Awaiter> OnStart(Awaiter awaiter) {
        return {*this, std::move(awaiter)};
    }

    /// What `final_suspend` returns.
    template <class Awaiter>
    Awaiter OnEnd(Awaiter awaiter) noexcept {
        Suspend();
        return awaiter;
    }

    template <class Awaitable>
    detail::TracedAwaiter<TracedPromise, Awaitable> OnAwait(Awaitable&& awaitable) {
        return {*this, static_cast<Awaitable&&>(awaitable)};
    }

private:
    friend class CoroutineActivity;

    static void ResumeFrom(CoroutineActivity* activity) noexcept {
        if (activity != nullptr) {
            ResumeFrom(activity->m_below);
            activity->Resume();
        }
    }

    // Not logged itself: it is what was current where the coroutine was created.
    Activity m_context{Handoff(), "coroutine", TraceType::Transparent};
    CoroutineActivity* m_top = nullptr;
};

inline CoroutineActivity::CoroutineActivity(TracedPromise& promise,
                                            Name name,
                                            Attributes attributes) noexcept
    : Activity(name, attributes),
      m_promise(promise),
      m_below(promise.m_top) {
    promise.m_top = this;
    Resume();
}

inline void CoroutineActivity::End() noexcept {
    for (CoroutineActivity** link = &m_promise.m_top; *link != nullptr; link = &(*link)->m_below) {
        if (*link == this) {
            *link = m_below;
            break;
        }
    }
    Activity::End();
}

inline CoroutineActivity::~CoroutineActivity() {
    for (CoroutineActivity** link = &m_promise.m_top; *link != nullptr; link = &(*link)->m_below) {
        if (*link == this) {
            End();
            break;
        }
    }
}

/// For coroutines of any kind: takes a resumed activity off the thread while something is awaited,
/// and resumes it where the coroutine continues.
///
///     co_await tarn::Await(activity, pool.GoOn());
template <class Awaitable>
detail::TracedAwaiter<Activity, Awaitable> Await(Activity& activity, Awaitable&& awaitable) {
    return {activity, static_cast<Awaitable&&>(awaitable)};
}

/// The same where the type of the awaitable must be kept, as in the coroutines of Boost.Asio. The
/// awaitable begins when it is awaited; its type is a template whose first argument is the type of
/// the result.
///
///     const std::size_t size = co_await tarn::AwaitTask(
///         activity, socket.async_read_some(buffer, boost::asio::use_awaitable));
template <template <class...> class Task, class... T>
Task<T...> AwaitTask(Activity& activity, Task<T...> task) {
    struct Back {
        Activity& activity;

        ~Back() { activity.Resume(); }
    };

    activity.Suspend();
    const Back back{activity};
    co_return co_await std::move(task);
}

}  // namespace enabled or disabled
}  // namespace tarn

#endif
