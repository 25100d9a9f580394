#pragma once

#include <cstdint>

namespace tarn::otlp {

/// What has become of the spans. Each is counted once:
/// `spans` is `sent` + `rejected` + `Dropped()` + `waiting`.
struct Statistics {
    std::uint64_t spans = 0;
    std::uint64_t sent = 0;      ///< the receiver has said that it took them
    std::uint64_t rejected = 0;  ///< the receiver took the request, but not these
    std::uint64_t waiting = 0;   ///< to be sent, or being sent

    std::uint64_t droppedFull = 0;     ///< there was no room for them
    std::uint64_t droppedRefused = 0;  ///< the receiver refused the request for good
    std::uint64_t droppedGivenUp = 0;  ///< tried for too long
    std::uint64_t droppedAtEnd = 0;    ///< not sent when the exporter ended

    std::uint64_t requests = 0;  ///< tries, with those that failed
    std::uint64_t retries = 0;   ///< those of them that were not the first of their spans

    std::uint64_t unreadable = 0;      ///< log events of which no span can be made
    std::uint64_t beginsLeftOut = 0;   ///< for which there was no room
    std::uint64_t openActivities = 0;  ///< whose begin is kept

    std::uint64_t Dropped() const {
        return droppedFull + droppedRefused + droppedGivenUp + droppedAtEnd;
    }
};

}  // namespace tarn::otlp
