#include "FoldingRules.h"

namespace folding {

namespace {

int64 Sum(int64 a, int64 b) {
    return static_cast<int64>(static_cast<uint64>(a) + static_cast<uint64>(b));
}

int64 Difference(int64 a, int64 b) {
    return static_cast<int64>(static_cast<uint64>(a) - static_cast<uint64>(b));
}

}  // namespace

int64 Figure::Inclusive() const noexcept {
    return Sum(sameThread, otherThreads);
}

void AddMeasured(Account& account, Kind kind, int64 amount) noexcept {
    Figure& figure = account.figures.at(kind);
    figure.exclusive = Sum(figure.exclusive, amount);
    figure.sameThread = Sum(figure.sameThread, amount);
}

void SetElapsed(Account& account, uint64 nanoseconds) {
    const uint64 milliseconds = nanoseconds / 1'000'000;
    account.elapsed = static_cast<double>(milliseconds) / 1000.0;
    account.threadIds.insert(account.threadId);
}

bool Fold(const Account& child, Account& sponsor) {
    const bool isOnSameThread = child.threadId == sponsor.threadId;
    sponsor.threadIds.insert(child.threadIds.begin(), child.threadIds.end());
    if (isOnSameThread) {
        sponsor.childrenTime += child.elapsed;
    }
    for (std::size_t kind = 0; kind < kindCount; ++kind) {
        const Figure& from = child.figures.at(kind);
        Figure& to = sponsor.figures.at(kind);
        to.otherThreads = Sum(to.otherThreads, from.otherThreads);
        if (isOnSameThread && sponsor.measuresNothing) {
            to.sameThread = Sum(to.sameThread, from.sameThread);
            continue;
        }
        if (isOnSameThread) {
            to.exclusive = Difference(to.exclusive, from.sameThread);
        } else {
            to.otherThreads = Sum(to.otherThreads, from.sameThread);
        }
        if (child.transparent) {
            to.exclusive = Sum(to.exclusive, from.exclusive);
        }
    }
    return isOnSameThread;
}

void SetExclusiveTime(Account& account) noexcept {
    account.exclusiveTime = account.elapsed - account.childrenTime;
}

}  // namespace folding
