#pragma once

// What a program includes to trace itself. It is light: it brings `tarn` as its only global name,
// macros that begin with TARN_, and hardly more than <string_view>. With TARN_DISABLE defined all
// of it is there and does nothing. (<new> has `std::exception` with less behind it than
// <exception>.)

#include "tarn/ActivityName.h"
#include "tarn/Attribute.h"
#include "tarn/Traits.h"

#include <cstddef>
#include <cstdint>
#include <new>
#include <string_view>
#include <type_traits>
#include <utility>

namespace tarn {

/// The name of a piece of work, borrowed. It ends with a NUL, or is copied where necessary.
class Name {
public:
    // NOLINTBEGIN(google-explicit-constructor): texts stand for names

    constexpr Name(const char* name) noexcept : m_text(name != nullptr ? name : "") {}

    constexpr Name(std::string_view name) noexcept : m_text(name.data()), m_length(name.size()) {}

    /// `std::string` and its like.
    template <
        class Text,
        std::enable_if_t<
            std::is_class_v<Text> &&
                std::is_convertible_v<decltype(std::declval<const Text&>().c_str()), const char*>,
            int> = 0>
    Name(const Text& name) noexcept : m_text(name.c_str()) {}

    // NOLINTEND(google-explicit-constructor)

    constexpr const char* Text() const noexcept { return m_text; }

    constexpr std::size_t Length() const noexcept { return m_length; }

private:
    const char* m_text;
    std::size_t m_length = TARN_TO_NUL;
};

/// `tarn::ContextAttributes({{"user", user}})`: of everything until a scope ends.
struct ContextAttributes {
    explicit ContextAttributes(Attributes list) noexcept : attributes(list) {}

    Attributes attributes;
};

namespace detail {

/// Attributes from alternating names and values, borrowed.
template <class... Pairs>
struct Row {
    static_assert(sizeof...(Pairs) % 2 == 0,
                  "tarn: give a name and a value for each attribute: \"path\", path");
    static constexpr std::size_t count = sizeof...(Pairs) / 2;

    explicit Row(const Pairs&... pairs) { Fill(first, pairs...); }

    static void Fill(abi::tarn_attribute* /*end*/) noexcept {}

    template <class Value, class... Rest>
    static void Fill(abi::tarn_attribute* next,
                     std::string_view name,
                     const Value& value,
                     const Rest&... rest) {
        *next = Attribute(name, value);
        Fill(next + 1, rest...);
    }

    abi::tarn_attribute first[count + 1];  // no array is empty in C++
};

// What a wrapped handler is associated with, if the handler itself is.

template <class Derived, class Function, class = void>
class WithExecutor {};

template <class Derived, class Function>
class WithExecutor<Derived, Function, std::void_t<typename Function::executor_type>> {
public:
    using executor_type = typename Function::executor_type;

    executor_type get_executor() const noexcept {
        return static_cast<const Derived*>(this)->GetFunction().get_executor();
    }
};

template <class Derived, class Function, class = void>
class WithAllocator {};

template <class Derived, class Function>
class WithAllocator<Derived, Function, std::void_t<typename Function::allocator_type>> {
public:
    using allocator_type = typename Function::allocator_type;

    allocator_type get_allocator() const noexcept {
        return static_cast<const Derived*>(this)->GetFunction().get_allocator();
    }
};

template <class Derived, class Function, class = void>
class WithCancellationSlot {};

template <class Derived, class Function>
class WithCancellationSlot<Derived,
                           Function,
                           std::void_t<typename Function::cancellation_slot_type>> {
public:
    using cancellation_slot_type = typename Function::cancellation_slot_type;

    cancellation_slot_type get_cancellation_slot() const noexcept {
        return static_cast<const Derived*>(this)->GetFunction().get_cancellation_slot();
    }
};

}  // namespace detail
}  // namespace tarn

#if defined(TARN_DISABLE)
#include "tarn/TraceDisabled.h"
#else

namespace tarn {

namespace abi {

TARN_EXPORT void FailException(tarn_work* work, const std::exception& exception) noexcept;
TARN_EXPORT void FailCurrentException(tarn_work* work) noexcept;

}  // namespace abi

inline namespace enabled {

class Activity;

/// An id as text.
class Id {
public:
    Id(const abi::tarn_work* work, std::int32_t which) noexcept
        : m_length(abi::tarn_get_id(work, which, m_text, sizeof m_text)) {
        if (m_length >= sizeof m_text) {
            m_length = sizeof m_text - 1;
        }
    }

    std::string_view View() const noexcept { return {m_text, m_length}; }

    // NOLINTNEXTLINE(google-explicit-constructor): an id is a text
    operator std::string_view() const noexcept { return View(); }

    /// True where there are no ids.
    bool IsEmpty() const noexcept { return m_length == 0; }

private:
    char m_text[160];
    std::size_t m_length;
};

/// The operations that scopes, activities and `Current()` share. `Derived` has `Work()`.
template <class Derived>
class WorkOperations {
public:
    /// Attributes, which are in the end event.
    void Add(Attributes attributes) noexcept {
        abi::tarn_add(Get(), attributes.First(), attributes.Count());
    }

    template <class T>
    void Add(std::string_view name, const T& value) {
        const Attribute attribute(name, value);
        abi::tarn_add(Get(), &attribute, 1);
    }

    /// A supplement: attributes with the time of the call.
    void Log(Attributes attributes) noexcept {
        abi::tarn_log(Get(), attributes.First(), attributes.Count());
    }

    template <class T>
    void Log(std::string_view name, const T& value) {
        const Attribute attribute(name, value);
        abi::tarn_log(Get(), &attribute, 1);
    }

    /// The work was canceled. Of several outcomes the last one counts.
    void Cancel(Attributes attributes = {}) noexcept {
        abi::tarn_cancel(Get(), attributes.First(), attributes.Count());
    }

    /// The work has failed; the reason becomes its result.
    void Fail(std::string_view reason, Attributes attributes = {}) noexcept {
        abi::tarn_fail(Get(), reason.data(), reason.size(), attributes.First(), attributes.Count());
    }

    /// The work has failed by an exception, whose type and text are logged.
    void FailException(const std::exception& exception) noexcept {
        abi::FailException(Get(), exception);
    }

    /// The same with the exception that is being handled; does nothing outside of a catch block.
    void FailCurrentException() noexcept { abi::FailCurrentException(Get()); }

    Id GetActivityId() const noexcept { return Id(Get(), abi::TARN_ACTIVITY_ID); }

    /// The id that all activities of a tree share.
    Id GetRootId() const noexcept { return Id(Get(), abi::TARN_ROOT_ID); }

protected:
    WorkOperations() noexcept = default;
    ~WorkOperations() = default;

private:
    abi::tarn_work* Get() const noexcept {
        return const_cast<Derived&>(static_cast<const Derived&>(*this)).Work();
    }
};

/// Captures what is current where work is handed over. Make one there, store it with the work, and
/// begin a scope or an activity with it where the work runs:
///
///     pool.Submit([from = tarn::Handoff()] {
///         const tarn::Scope scope(from, "work");
///     });
///
/// Each run is a separate activity; work that never runs leaves nothing behind. Copies share their
/// state. Any number of threads may use one at once.
class Handoff {
public:
    /// Captures what is current on the calling thread.
    Handoff() noexcept : Handoff(nullptr, "") {}

    Handoff(const Handoff& other) noexcept : m_handoff(other.m_handoff) {
        abi::tarn_handoff_retain(m_handoff);
    }

    Handoff(Handoff&& other) noexcept : m_handoff(std::exchange(other.m_handoff, nullptr)) {}

    Handoff& operator=(Handoff other) noexcept {
        std::swap(m_handoff, other.m_handoff);
        return *this;
    }

    ~Handoff() { abi::tarn_handoff_release(m_handoff); }

private:
    friend class Activity;
    friend class Scope;
    friend class Sender;
    template <class>
    friend class Wrapped;

    explicit Handoff(abi::tarn_handoff* owned) noexcept : m_handoff(owned) {}

    Handoff(abi::tarn_work* activity, Name name) noexcept
        : m_handoff(abi::tarn_handoff_take(activity, name.Text(), name.Length())) {}

    abi::tarn_handoff* m_handoff;
};

/// A piece of work on one thread, from construction to destruction:
///
///     tarn::Scope scope("load", {{"path", path}});
///
/// It is a child of what is current on the thread, and is current itself until it ends. It is
/// measured unless its type is `Untracked`. An exception that leaves it makes it end early.
///
/// It is a local variable: the thread that made it ends it, and scopes end in the reverse order of
/// their beginnings; otherwise the process ends, and a line on standard error says why. Work of
/// another kind, in a container, behind a pointer or in a coroutine, is an `Activity`. Nothing here
/// throws: when memory runs out, the log is incomplete.
class Scope : public WorkOperations<Scope> {
public:
    explicit Scope(Name name, Attributes attributes = {}) noexcept {
        abi::tarn_scope_open(
            &m_scope, name.Text(), name.Length(), nullptr, attributes.First(), attributes.Count());
    }

    Scope(Name name, Traits traits, Attributes attributes = {}) noexcept {
        Open(name, traits, {}, nullptr, attributes);
    }

    /// With a name that caches whether it is off: a scope that is off costs little more than that.
    explicit Scope(const ActivityName& name, Attributes attributes = {}) noexcept {
        OpenAt(name, nullptr, attributes);
    }

    Scope(const ActivityName& name, Traits traits, Attributes attributes = {}) noexcept {
        const abi::tarn_options options = OptionsOf(traits, {}, nullptr);
        OpenAt(name, &options, attributes);
    }

    Scope(Name name, ContextAttributes context, Attributes attributes = {}) noexcept {
        Open(name, {}, context.attributes, nullptr, attributes);
    }

    Scope(Name name,
          ContextAttributes context,
          Traits traits,
          Attributes attributes = {}) noexcept {
        Open(name, traits, context.attributes, nullptr, attributes);
    }

    /// Continues the activity that handed over.
    Scope(const Handoff& from, Name name, Attributes attributes = {}) noexcept {
        Open(name, {}, {}, from.m_handoff, attributes);
    }

    Scope(const Handoff& from, Name name, Traits traits, Attributes attributes = {}) noexcept {
        Open(name, traits, {}, from.m_handoff, attributes);
    }

    /// For the macros: a text that is always the same at this place, then names and values in turn.
    template <std::size_t size, class... Pairs>
    Scope(abi::tarn_site& site, const char (&name)[size], const Pairs&... pairs) {
        if (detail::IsKnownToBeOff(site)) {
            m_scope.work.kind = isOff;
        } else {
            const detail::Row<Pairs...> row(pairs...);
            abi::tarn_scope_open_at(
                &m_scope, &site, name, TARN_TO_NUL, nullptr, row.first, row.count);
        }
    }

    /// The same with any other text.
    template <std::size_t size, class... Pairs>
    Scope(abi::tarn_site& site, char (&name)[size], const Pairs&... pairs)
        : Scope(site, Name(name), pairs...) {}

    template <class... Pairs>
    Scope(abi::tarn_site& /*site*/, Name name, const Pairs&... pairs) {
        const detail::Row<Pairs...> row(pairs...);
        abi::tarn_scope_open(&m_scope, name.Text(), name.Length(), nullptr, row.first, row.count);
    }

    ~Scope() {
        if (m_scope.work.kind != isOff) {
            abi::tarn_scope_close(&m_scope);
        }
    }

    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

    /// A scope is a local variable. What lives elsewhere is an `Activity`.
    static void* operator new(std::size_t) = delete;
    static void* operator new[](std::size_t) = delete;

    /// Attributes of all that happens until the scope ends.
    void AddContext(Attributes attributes) noexcept {
        abi::tarn_add_context(&m_scope.work, attributes.First(), attributes.Count());
    }

private:
    friend class WorkOperations<Scope>;
    template <class>
    friend class Wrapped;

    explicit Scope(const Handoff& from) noexcept { Open(nullptr, from.m_handoff); }

    void Open(const char* name, const abi::tarn_handoff* from) noexcept {
        const abi::tarn_options options{sizeof options, 0, 0, 0, nullptr, 0, from};
        abi::tarn_scope_open(&m_scope, name, TARN_TO_NUL, &options, nullptr, 0);
    }

    void Open(Name name,
              Traits traits,
              Attributes context,
              const abi::tarn_handoff* from,
              Attributes attributes) noexcept {
        const abi::tarn_options options = OptionsOf(traits, context, from);
        abi::tarn_scope_open(
            &m_scope, name.Text(), name.Length(), &options, attributes.First(), attributes.Count());
    }

    void OpenAt(const ActivityName& name,
                const abi::tarn_options* options,
                Attributes attributes) noexcept {
        abi::tarn_site& site = name.GetSite();
        const abi::tarn_attribute* const first = attributes.First();
        if (detail::IsKnownToBeOff(site)) {
            m_scope.work.kind = isOff;
        } else {
            abi::tarn_scope_open_at(
                &m_scope, &site, name.GetText(), TARN_TO_NUL, options, first, attributes.Count());
        }
    }

    static abi::tarn_options OptionsOf(Traits traits,
                                       Attributes context,
                                       const abi::tarn_handoff* from) noexcept {
        return {sizeof(abi::tarn_options),
                traits.flags,
                static_cast<std::int32_t>(traits.type),
                static_cast<std::int32_t>(traits.rank),
                context.First(),
                context.Count(),
                from};
    }

    abi::tarn_work* Work() noexcept { return &m_scope.work; }

    static constexpr std::uint64_t isOff = 0;

    abi::tarn_scope m_scope;
};

/// Work that begins here and ends anywhere: in a container, behind a pointer, in a coroutine or a
/// callback. Activities overlap, end in any order and on any thread, and survive the scope that
/// they began in. An activity begins under what is current on the thread, but is not current
/// itself: what belongs to it is its `Child`, a scope made with its `GetHandoff()`, or begins while
/// it is `Resumed`.
///
///     std::map<int, tarn::Activity> jobs;
///     jobs.emplace(id, tarn::Activity("job", {{"id", id}}));
///     ...
///     jobs.erase(id);
///
/// It is not measured itself; the figures of what is measured within it count as its own. Any
/// thread may use it, several at once, except to move it. Nothing here throws. Using it after its
/// end, resuming it twice on a thread, or suspending it where it is not resumed has no effect; the
/// log warns of it, once for each name.
class Activity : public WorkOperations<Activity> {
public:
    /// An empty activity, like one that was moved from: operations on it do nothing.
    Activity() noexcept = default;

    explicit Activity(Name name, Attributes attributes = {}) noexcept
        : Activity(name, Traits(), nullptr, attributes) {}

    Activity(Name name, Traits traits, Attributes attributes = {}) noexcept
        : Activity(name, traits, nullptr, attributes) {}

    /// Continues the activity that handed over; children of a transparent one belong to that.
    Activity(const Handoff& from, Name name, Attributes attributes = {}) noexcept
        : Activity(name, Traits(), from.m_handoff, attributes) {}

    Activity(const Handoff& from, Name name, Traits traits, Attributes attributes = {}) noexcept
        : Activity(name, traits, from.m_handoff, attributes) {}

    Activity(Activity&& other) noexcept : m_work(std::exchange(other.m_work, nullptr)) {}

    Activity& operator=(Activity&& other) noexcept {
        Activity moved(std::move(other));
        std::swap(m_work, moved.m_work);
        return *this;
    }

    Activity(const Activity&) = delete;
    Activity& operator=(const Activity&) = delete;

    /// Ends the activity, if it has not ended.
    ~Activity() { abi::tarn_activity_release(m_work); }

    /// Ends the activity now.
    void End() noexcept { abi::tarn_activity_end(m_work); }

    /// Makes the activity current on the calling thread; `Resumed` does it for a block.
    void Resume() noexcept { abi::tarn_activity_resume(m_work); }

    /// Takes the activity off the calling thread. Scopes that began there should have ended.
    void Suspend() noexcept { abi::tarn_activity_suspend(m_work); }

    /// Begins an activity within this one, on any thread.
    Activity Child(Name name, Attributes attributes = {}) noexcept {
        return Activity(GetHandoff(), name, attributes);
    }

    /// For scopes and activities within this one, on any threads.
    Handoff GetHandoff() noexcept { return Handoff(m_work, ""); }

private:
    friend class WorkOperations<Activity>;
    friend class Resumed;

    Activity(Name name,
             Traits traits,
             const abi::tarn_handoff* from,
             Attributes attributes) noexcept {
        const abi::tarn_options options{sizeof options,
                                        traits.flags,
                                        static_cast<std::int32_t>(traits.type),
                                        static_cast<std::int32_t>(traits.rank),
                                        nullptr,
                                        0,
                                        from};
        m_work = abi::tarn_activity_begin(
            name.Text(), name.Length(), &options, attributes.First(), attributes.Count());
    }

    abi::tarn_work* Work() noexcept { return m_work; }

    abi::tarn_work* m_work = nullptr;
};

/// While one exists, an activity is current on the calling thread, even if moved or ended.
class Resumed {
public:
    explicit Resumed(Activity& activity) noexcept : m_work(activity.m_work) {
        abi::tarn_activity_retain(m_work);
        abi::tarn_activity_resume(m_work);
    }

    ~Resumed() {
        abi::tarn_activity_suspend(m_work);
        abi::tarn_activity_release(m_work);
    }

    Resumed(const Resumed&) = delete;
    Resumed& operator=(const Resumed&) = delete;

private:
    abi::tarn_work* m_work;
};

/// See `Wrap`. It has the executor, allocator and cancellation slot of the function, if any.
template <class Function>
class Wrapped : public detail::WithExecutor<Wrapped<Function>, Function>,
                public detail::WithAllocator<Wrapped<Function>, Function>,
                public detail::WithCancellationSlot<Wrapped<Function>, Function> {
public:
    template <class F>
    Wrapped(Name name, F&& function)
        : m_from(nullptr, name),
          m_function(std::forward<F>(function)) {}

    template <class... Arguments>
    auto operator()(Arguments&&... arguments)
        -> decltype(std::declval<Function&>()(std::forward<Arguments>(arguments)...)) {
        return Run(m_from, m_function, std::forward<Arguments>(arguments)...);
    }

    template <class... Arguments>
    auto operator()(Arguments&&... arguments) const
        -> decltype(std::declval<const Function&>()(std::forward<Arguments>(arguments)...)) {
        return Run(m_from, m_function, std::forward<Arguments>(arguments)...);
    }

    const Function& GetFunction() const noexcept { return m_function; }

private:
    template <class F, class... Arguments>
    static decltype(auto) Run(const Handoff& from, F& function, Arguments&&... arguments) {
        Scope scope(from);
#if defined(__cpp_exceptions)
        try {
            return function(std::forward<Arguments>(arguments)...);
        } catch (...) {
            scope.FailCurrentException();
            throw;
        }
#else
        return function(std::forward<Arguments>(arguments)...);
#endif
    }

    Handoff m_from;
    Function m_function;
};

/// Binds a function that runs elsewhere or later (on a pool, by `std::async`, in a timer) to what
/// is current here. Each run is a scope with this name, under what was current, and an exception
/// that leaves it is logged with type and text. A function that never runs leaves nothing
/// behind.
///
///     auto answer = std::async(tarn::Wrap("compute", [] { return 42; }));
template <class Function>
Wrapped<std::decay_t<Function>> Wrap(Name name, Function&& function) {
    return Wrapped<std::decay_t<Function>>(name, std::forward<Function>(function));
}

/// See `Current`.
class CurrentWork : public WorkOperations<CurrentWork> {
public:
    CurrentWork() noexcept : m_work(abi::tarn_current()) {}

    /// False if nothing is current; operations then do nothing.
    explicit operator bool() const noexcept { return m_work != nullptr; }

private:
    friend class WorkOperations<CurrentWork>;

    abi::tarn_work* Work() noexcept { return m_work; }

    abi::tarn_work* m_work;
};

/// The thread's innermost work that is not off. Use it at once: `tarn::Current().Add("n", n)`.
inline CurrentWork Current() noexcept {
    return {};
}

}  // namespace enabled
}  // namespace tarn

#define TARN_CONCATENATED(a, b) a##b
#define TARN_LOCAL_NAME(a, b) TARN_CONCATENATED(a, b)

/// A scope until the end of the block: TARN_SCOPE("load", "path", path). `tarn::Current()` is it.
/// Each place caches whether its literal is off; an array of constant characters counts as a
/// literal, and must never change.
#define TARN_SCOPE(...)                                     \
    ::tarn::Scope TARN_LOCAL_NAME(tarnScope, __COUNTER__) { \
        TARN_SITE(), __VA_ARGS__                            \
    }

/// The same with the function's name: TARN_SCOPE_FUNCTION("path", path).
#define TARN_SCOPE_FUNCTION(...)                            \
    ::tarn::Scope TARN_LOCAL_NAME(tarnScope, __COUNTER__) { \
        TARN_SITE(), __func__, __VA_ARGS__                  \
    }

/// What this place caches: one object for each place where the macro is written.
#define TARN_SITE()                                 \
    ([]() noexcept -> ::tarn::abi::tarn_site& {     \
        static ::tarn::abi::tarn_site tarnThisSite; \
        return tarnThisSite;                        \
    }())

#endif
