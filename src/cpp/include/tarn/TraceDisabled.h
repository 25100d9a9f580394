#pragma once

// Included by tarn/Trace.h when TARN_DISABLE is defined: the same names, none of which does
// anything, so that the compiler leaves nothing of them. They are other types than the ones that
// trace: sources with and without TARN_DISABLE may be linked together.

#include "tarn/Trace.h"

#if defined(TARN_DISABLE)

namespace tarn {
inline namespace disabled {

class Id {
public:
    constexpr std::string_view View() const noexcept { return {}; }

    // NOLINTNEXTLINE(google-explicit-constructor): an id is a text
    constexpr operator std::string_view() const noexcept { return {}; }

    constexpr bool IsEmpty() const noexcept { return true; }
};

template <class Derived>
class WorkOperations {
public:
    constexpr void Add(Attributes /*attributes*/) noexcept {}

    template <class T>
    constexpr void Add(std::string_view /*name*/, const T& /*value*/) {}

    constexpr void Log(Attributes /*attributes*/) noexcept {}

    template <class T>
    constexpr void Log(std::string_view /*name*/, const T& /*value*/) {}

    constexpr void Cancel(Attributes /*attributes*/ = {}) noexcept {}

    constexpr void Fail(std::string_view /*reason*/, Attributes /*attributes*/ = {}) noexcept {}

    void FailException(const std::exception& /*exception*/) noexcept {}

    constexpr void FailCurrentException() noexcept {}

    constexpr Id GetActivityId() const noexcept { return {}; }

    constexpr Id GetRootId() const noexcept { return {}; }

protected:
    constexpr WorkOperations() noexcept = default;
    ~WorkOperations() = default;
};

class Handoff {
public:
    // Not trivial: a variable of this type is not unused.
    Handoff() noexcept {}  // NOLINT(modernize-use-equals-default): its variable is to count as used
};

class Scope : public WorkOperations<Scope> {
public:
    explicit Scope(Name /*name*/, Attributes /*attributes*/ = {}) noexcept {}

    Scope(Name /*name*/, Traits /*traits*/, Attributes /*attributes*/ = {}) noexcept {}

    explicit Scope(const ActivityName& /*name*/, Attributes /*attributes*/ = {}) noexcept {}

    Scope(const ActivityName& /*name*/,
          Traits /*traits*/,
          Attributes /*attributes*/ = {}) noexcept {}

    Scope(Name /*name*/, ContextAttributes /*context*/, Attributes /*attributes*/ = {}) noexcept {}

    Scope(Name /*name*/,
          ContextAttributes /*context*/,
          Traits /*traits*/,
          Attributes /*attributes*/ = {}) noexcept {}

    Scope(const Handoff& /*from*/, Name /*name*/, Attributes /*attributes*/ = {}) noexcept {}

    Scope(const Handoff& /*from*/,
          Name /*name*/,
          Traits /*traits*/,
          Attributes /*attributes*/ = {}) noexcept {}

    ~Scope() {}  // NOLINT(modernize-use-equals-default): its variable is to count as used

    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

    static void* operator new(std::size_t) = delete;
    static void* operator new[](std::size_t) = delete;

    void AddContext(Attributes /*attributes*/) noexcept {}
};

class Activity : public WorkOperations<Activity> {
public:
    Activity() noexcept = default;

    explicit Activity(Name /*name*/, Attributes /*attributes*/ = {}) noexcept {}

    Activity(Name /*name*/, Traits /*traits*/, Attributes /*attributes*/ = {}) noexcept {}

    Activity(const Handoff& /*from*/, Name /*name*/, Attributes /*attributes*/ = {}) noexcept {}

    Activity(const Handoff& /*from*/,
             Name /*name*/,
             Traits /*traits*/,
             Attributes /*attributes*/ = {}) noexcept {}

    Activity(Activity&& /*other*/) noexcept {}

    Activity& operator=(Activity&& /*other*/) noexcept { return *this; }

    Activity(const Activity&) = delete;
    Activity& operator=(const Activity&) = delete;

    ~Activity() {}  // NOLINT(modernize-use-equals-default): its variable is to count as used

    void End() noexcept {}

    void Resume() noexcept {}

    void Suspend() noexcept {}

    Activity Child(Name /*name*/, Attributes /*attributes*/ = {}) noexcept { return {}; }

    Handoff GetHandoff() noexcept { return {}; }
};

class Resumed {
public:
    explicit Resumed(Activity& /*activity*/) noexcept {}

    ~Resumed() {}  // NOLINT(modernize-use-equals-default): its variable is to count as used

    Resumed(const Resumed&) = delete;
    Resumed& operator=(const Resumed&) = delete;
};

/// The function itself.
template <class Function>
std::decay_t<Function> Wrap(Name /*name*/, Function&& function) {
    return std::forward<Function>(function);
}

class CurrentWork : public WorkOperations<CurrentWork> {
public:
    constexpr CurrentWork() noexcept {}

    constexpr explicit operator bool() const noexcept { return false; }
};

constexpr CurrentWork Current() noexcept {
    return {};
}

}  // namespace disabled

namespace detail {

/// For what is named and not evaluated.
template <class... Arguments>
constexpr bool Ignore(const Arguments&... /*arguments*/) noexcept {
    return false;
}

}  // namespace detail
}  // namespace tarn

#define TARN_SCOPE(...) static_cast<void>(false && ::tarn::detail::Ignore(__VA_ARGS__))
#define TARN_SCOPE_FUNCTION(...) static_cast<void>(false && ::tarn::detail::Ignore(__VA_ARGS__))

#endif
