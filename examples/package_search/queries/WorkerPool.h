#pragma once

#include "Deadline.h"
#include "HandedOverActivity.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace packagesearch {

/// A handed-over activity: either a worker takes it, to run it, or the asking thread does, to give
/// it up. Shared by the two.
class Handover {
public:
    /// True for the first one who asks.
    bool Take() noexcept { return !m_taken.exchange(true); }

    /// For the one who took it: its activity, which is gone from here then.
    HandedOverActivity Activity() { return std::move(m_activity); }

private:
    std::atomic<bool> m_taken{false};
    HandedOverActivity m_activity;
};

/// What a worker will have brought about: a result, or an exception. Belongs to the thread that
/// submitted the work. Work that nobody asked the result of is given up if it has not begun, and
/// waited for if it has: it is part of an activity that must not end before it.
template <class Result>
class Pending {
public:
    Pending(Pending&&) noexcept = default;
    Pending& operator=(Pending&&) = delete;

    ~Pending() {
        if (m_future.valid() && !GiveUp()) {
            m_future.wait();
        }
    }

    /// Waits; returns the result or throws the exception. Once only.
    Result Get() {
        Outcome outcome = m_future.get();
        if (outcome.error) {
            std::rethrow_exception(std::move(outcome.error));
        }
        return std::move(outcome.result);
    }

    /// The same; but work that has not even begun at the deadline is given up, which throws
    /// `DeadlineExceeded`. Work that has begun keeps to the deadline by itself.
    Result GetBefore(const Deadline& deadline) {
        const bool isLate = !deadline.IsNever() &&
                            m_future.wait_until(deadline.When()) != std::future_status::ready;
        if (isLate && GiveUp()) {
            m_future = {};
            throw DeadlineExceeded("before a worker was free");
        }
        return Get();
    }

private:
    friend class WorkerPool;

    // The exception moves from one thread to the other like any result. In the future's own place
    // for it both would own it, by a count inside the language's runtime that the thread sanitizer
    // cannot see.
    struct Outcome {
        Result result;
        std::exception_ptr error;
    };

    Pending(std::future<Outcome> future, std::shared_ptr<Handover> handover)
        : m_future(std::move(future)),
          m_handover(std::move(handover)) {}

    // False when a worker was first.
    bool GiveUp() {
        if (!m_handover->Take()) {
            return false;
        }
        const HandedOverActivity neverRun = m_handover->Activity();
        return true;
    }

    std::future<Outcome> m_future;
    std::shared_ptr<Handover> m_handover;
};

/// A fixed number of threads that do what they are given, in the order in which it was given. Any
/// thread may submit, but not a worker that then waits for the result: it could wait for itself.
class WorkerPool {
public:
    explicit WorkerPool(std::size_t workers);

    /// Finishes all that was submitted.
    ~WorkerPool();

    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// Calls `work(worker)` on some worker, counted from 0, inside an activity of this name whose
    /// parent is the caller's current one. The activity has ended when the result is there. The
    /// name must stay valid until then. The result type needs a default constructor.
    template <class Work>
    auto Submit(const char* activityName, Work work)
        -> Pending<std::invoke_result_t<Work&, std::size_t>> {
        using Result = std::invoke_result_t<Work&, std::size_t>;
        using Outcome = typename Pending<Result>::Outcome;
        auto handover = std::make_shared<Handover>();
        std::packaged_task<Outcome(std::size_t)> task(
            [activityName, work = std::move(work), handover](std::size_t worker) mutable {
                Outcome outcome;
                if (handover->Take()) {
                    try {
                        handover->Activity().Run(
                            activityName, worker, [&] { outcome.result = work(worker); });
                    } catch (...) {
                        outcome.error = std::current_exception();
                    }
                }
                return outcome;
            });
        Pending<Result> pending(task.get_future(), std::move(handover));
        Enqueue(Task(std::move(task)));
        return pending;
    }

private:
    // Calls with a worker's number; a task takes any callable that can be moved.
    using Task = std::packaged_task<void(std::size_t)>;

    void Enqueue(Task task);
    void Work(std::size_t worker);

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Task> m_tasks;
    bool m_stopping = false;
    std::vector<std::thread> m_threads;
};

}  // namespace packagesearch
