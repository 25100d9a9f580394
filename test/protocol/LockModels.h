#pragma once

#include "Interleavings.h"

#include <ostream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// What the models of a lock of readers and writers have in common. A model has `threads`, of which
// `count` take part, and says of one whether it is inside; `broken` is the rule that it breaks, of
// an enumeration `Broken` in which `Nothing` breaks no rule.
namespace tarn::test {

inline constexpr const char* notAlone = "a writer is not alone";
inline constexpr const char* forEver = "never come to their ends";
inline constexpr const char* afterEnd = "the lock was read after its end";

/// `notAlone` if anybody is inside beside a writer; empty otherwise.
template <class Model>
std::string ExclusionErrorOf(const Model& model) {
    int readers = 0;
    int writers = 0;
    for (const auto& thread : model.threads) {
        (thread.isWriter ? writers : readers) += model.IsInside(thread) ? 1 : 0;
    }
    return writers > 1 || (writers == 1 && readers != 0) ? notAlone : "";
}

/// "rw": a reader and a writer. A capital letter ends the life of the lock when it gets in.
template <class Model>
Model With(const std::string& threads, int rounds, decltype(Model::broken) broken) {
    Model model;
    model.broken = broken;
    for (const char letter : threads) {
        auto& thread = model.threads.at(model.count);
        ++model.count;
        thread.isWriter = letter == 'w' || letter == 'W';
        thread.isLast = letter == 'R' || letter == 'W';
        thread.roundsLeft = rounds;
    }
    return model;
}

template <class Model>
void ExpectNoError(const std::string& threads, int rounds) {
    const auto found =
        RunAllInterleavings(With<Model>(threads, rounds, decltype(Model::broken)::Nothing));

    EXPECT_THAT(found.error, testing::IsEmpty()) << testing::PrintToString(found.schedule);
}

/// A rule, threads that show that the model breaks it, and what is found then.
template <class Rule>
struct Breach {
    Rule rule;
    const char* threads;
    const char* error;

    friend void PrintTo(const Breach& breach, std::ostream* out) {
        *out << static_cast<int>(breach.rule) << ' ' << breach.threads;
    }
};

template <class Model>
void ExpectNoticed(const Breach<decltype(Model::broken)>& breach) {
    const auto found = RunAllInterleavings(With<Model>(breach.threads, 1, breach.rule));

    EXPECT_THAT(found.error, testing::HasSubstr(breach.error));
}

}  // namespace tarn::test
