#pragma once

#include "tarn/ActivityContext.h"
#include "tarn/Export.h"
#include "tarn/ICarrier.h"

#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

namespace tarn {

/// How much of what another process sends is accepted. An id is in every line of the tree, so a
/// long one costs space in each.
struct ExtractionLimits {
    std::size_t headerBytes = 512;   ///< the longest value of a header
    std::size_t idCharacters = 128;  ///< the longest id
    int depth = 10'000;              ///< deeper is no tree, but services that call each other
};

/// Continues activities across processes: writes the calling thread's current one into headers, and
/// reads another process's from headers. Stateless; any thread.
class TARN_EXPORT ActivityTracer {
public:
    /// The names of the two headers.
    static constexpr const char* traceIdHeader = "corvala-trace-id";
    static constexpr const char* extraDepthHeader = "corvala-extra-depth";

    /// Null when the thread has no current activity.
    static std::shared_ptr<ActivityContext> GetCurrentActivityContext();

    /// Writes the header "corvala-trace-id" ("ROOT:ROOT:0") and then "corvala-extra-depth" (the
    /// trace depth). Nothing while foreground thread contexts are disabled or no activity is
    /// current.
    static void injectContext(ICarrier& carrier);

    /// The counterpart on the receiving side: reads the values of the two headers, empty for one
    /// that is not there, and makes the context of one activity that goes on with the sender's: a
    /// new id under the same root, sponsored by it, one deeper. A scope takes it over and is
    /// measured like any other:
    ///
    ///     const auto context = tarn::ActivityTracer::ExtractContext(traceId, depth);
    ///     tarn::ActivityScope serve("serve",
    ///                               tarn::CustomContext(Metrics::NameValueList()),
    ///                               tarn::Traits(),
    ///                               {},
    ///                               context.value_or(tarn::ActivityContextInitializer()));
    ///
    /// Nothing when there are no headers, and while foreground thread contexts are disabled. What
    /// `injectContext` would not have written, and what is over a limit, is refused as a whole and
    /// counted: an id is 1 or more visible ASCII characters without a colon, a depth is a decimal
    /// number without a sign. Whatever a sender writes, nothing is thrown but `std::bad_alloc`.
    static std::optional<ActivityContextInitializer> ExtractContext(
        std::string_view traceId, std::string_view extraDepth, const ExtractionLimits& limits = {});

    /// How often headers were refused since the process started.
    static uint64 GetRefusedHeaders() noexcept;
};

}  // namespace tarn
