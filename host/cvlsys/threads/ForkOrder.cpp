#include "cvlsys/host/ForkOrder.h"

#include <pthread.h>

namespace cvlsys {

namespace {

// In the order of ranks. Nothing is ever taken out, so a fork may walk through it while a library
// that is being loaded puts something in.
constinit std::atomic<ForkParticipant*> s_first{nullptr};

void BeforeFork() noexcept {
    const auto end = ForkParticipant::ForkClock::now() + forkLimit;
    for (ForkParticipant* participant = s_first.load(std::memory_order_acquire);
         participant != nullptr;
         participant = participant->Next()) {
        participant->BeforeFork(end);
    }
}

// There are about a dozen of them.
template <class Call>
void CallBackwards(ForkParticipant* participant, const Call& call) noexcept {
    if (participant != nullptr) {
        CallBackwards(participant->Next(), call);
        call(*participant);
    }
}

void AfterForkInParent() noexcept {
    CallBackwards(s_first.load(std::memory_order_acquire),
                  [](ForkParticipant& participant) { participant.AfterForkInParent(); });
}

void AfterForkInChild() noexcept {
    CallBackwards(s_first.load(std::memory_order_acquire),
                  [](ForkParticipant& participant) { participant.AfterForkInChild(); });
}

// This library is loaded before all that use it. So this handler comes last before a fork and first
// after it: handlers of the host's may trace in both.
[[maybe_unused]] const int handlersRegistered =
    pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild);

}  // namespace

ForkParticipant::ForkParticipant(ForkRank rank) noexcept : m_rank(rank) {
    std::atomic<ForkParticipant*>* place = &s_first;
    ForkParticipant* next = place->load(std::memory_order_acquire);
    do {
        while (next != nullptr && next->m_rank <= m_rank) {
            place = &next->m_next;
            next = place->load(std::memory_order_acquire);
        }
        m_next.store(next, std::memory_order_relaxed);
    } while (!place->compare_exchange_weak(next, this, std::memory_order_release));
}

void InForkedChild::BeforeFork(ForkClock::time_point /*end*/) noexcept {}

void InForkedChild::AfterForkInParent() noexcept {}

void InForkedChild::AfterForkInChild() noexcept {
    m_function();
}

}  // namespace cvlsys
