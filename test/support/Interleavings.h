#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace tarn::test {

/// What a thread of a model can do in a state.
enum class Step : std::uint8_t {
    Taken,  ///< it has taken its next step, and the model is in another state
    Waits,  ///< it wants to go on and cannot, until another thread has done something
    Idle    ///< it has nothing left to do, or nothing before another thread asks for something
};

/// What came out of running all interleavings of a model.
struct Interleavings {
    std::size_t states = 0;             ///< different ones that can be reached
    std::string error;                  ///< empty if nothing is wrong
    std::vector<std::string> schedule;  ///< a shortest way to the error: who did what, in order
};

/// Runs all interleavings of the steps of a model's threads. A model is a small value that holds
/// everything, shared words and where each thread is, and has
///
///     std::size_t ThreadCount() const;
///     tarn::test::Step Take(std::size_t thread);                 // one atomic step; changes
///     nothing unless
///                                                        // it is Taken
///     std::string NameOfNextStep(std::size_t thread) const;      // for the schedule
///     std::string Error() const;                         // what is wrong in this state, or ""
///     auto operator<=>(const Model&) const = default;
///
/// There is an error if `Error` says so in any state that can be reached, or if from any such state
/// no way leads to one in which all threads are idle: that is a deadlock, a wake-up that is lost,
/// or threads that go round in circles for ever. A thread that sleeps wakes up only when the model
/// lets it: a sleeper should not be woken for no reason, or lost wake-ups would not show. What has
/// to happen within a number of steps is counted in the model and looked at by `Error`.
///
/// Models are sequentially consistent: they say nothing about weaker orders of memory.
template <class Model>
Interleavings RunAllInterleavings(const Model& initial) {
    constexpr std::size_t none = static_cast<std::size_t>(-1);

    struct Visit {
        const Model* model;
        std::size_t from;  // where it was reached first, and by whose step
        std::size_t thread;
        std::vector<std::size_t> origins;
    };

    std::map<Model, std::size_t> numbers;
    std::vector<Visit> visits;
    std::vector<std::size_t> ends;

    const auto reach = [&](const Model& model, std::size_t from, std::size_t thread) {
        const auto [entry, isNew] = numbers.emplace(model, visits.size());
        if (isNew) {
            visits.push_back({&entry->first, from, thread, {}});
        }
        if (from != none) {
            visits[entry->second].origins.push_back(from);
        }
    };

    const auto fail = [&](std::size_t state, std::string error) {
        Interleavings result{visits.size(), std::move(error), {}};
        for (; visits[state].from != none; state = visits[state].from) {
            const std::size_t thread = visits[state].thread;
            result.schedule.push_back("thread " + std::to_string(thread) + ": " +
                                      visits[visits[state].from].model->NameOfNextStep(thread));
        }
        std::reverse(result.schedule.begin(), result.schedule.end());
        return result;
    };

    reach(initial, none, 0);
    for (std::size_t state = 0; state < visits.size(); ++state) {
        const Model current = *visits[state].model;
        if (const std::string error = current.Error(); !error.empty()) {
            return fail(state, error);
        }
        bool allAreIdle = true;
        for (std::size_t thread = 0; thread < current.ThreadCount(); ++thread) {
            Model next = current;
            const Step step = next.Take(thread);
            allAreIdle = allAreIdle && step == Step::Idle;
            if (step == Step::Taken) {
                reach(next, state, thread);
            } else if (next != current) {
                return fail(state, "the model changed though its step was not taken");
            }
        }
        if (allAreIdle) {
            ends.push_back(state);
        }
    }

    std::vector<bool> endsWell(visits.size(), false);
    for (const std::size_t end : ends) {
        endsWell[end] = true;
    }
    while (!ends.empty()) {
        const std::size_t state = ends.back();
        ends.pop_back();
        for (const std::size_t origin : visits[state].origins) {
            if (!endsWell[origin]) {
                endsWell[origin] = true;
                ends.push_back(origin);
            }
        }
    }
    const auto stuck = std::find(endsWell.begin(), endsWell.end(), false);
    if (stuck != endsWell.end()) {
        return fail(static_cast<std::size_t>(stuck - endsWell.begin()),
                    "from here on the threads never come to their ends");
    }
    return {visits.size(), "", {}};
}

}  // namespace tarn::test
