#pragma once

#include "cvlsys/IntegerTypes.h"

#include <atomic>
#include <iosfwd>
#include <string>
#include <vector>

namespace tarn::test {

/// The host's side of counting: six counters and the counter callback, installed as options from
/// construction to destruction. The callback is called where events are delivered; read while
/// nothing is delivered.
class HostCounters {
public:
    /// What the callback was told, and its counter at that moment.
    struct Call {
        std::string name;
        uint64 amount;
        int64 counterThen;

        friend bool operator==(const Call&, const Call&) = default;
        friend void PrintTo(const Call& call, std::ostream* out);
    };

    HostCounters();
    ~HostCounters();
    HostCounters(const HostCounters&) = delete;
    HostCounters& operator=(const HostCounters&) = delete;

    std::atomic<int64> contextsCreated{0};
    std::atomic<int64> contextsClosed{0};
    std::atomic<int64> requestContextsCreated{0};
    std::atomic<int64> requestContextsClosed{0};
    std::atomic<int64> scopesOpened{0};
    std::atomic<int64> scopesClosed{0};

    /// The calls in order; their names are those of the counters above.
    std::vector<Call> calls;

    std::vector<std::string> CalledNames() const;
};

}  // namespace tarn::test
