#pragma once

#include "encode/SpanEncoder.h"
#include "send/RetryPolicy.h"
#include "send/StopSignal.h"
#include "send/Transport.h"

#include "tarn/otlp/Options.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::otlp {

/// What has become of a batch.
struct BatchResult {
    enum class Kind {
        Sent,
        Refused,   ///< for good
        TooLarge,  ///< for the receiver, in one request
        GivenUp,   ///< tried for too long
        Stopped,   ///< there was no time left
    };

    Kind kind = Kind::Sent;
    std::uint64_t rejected = 0;  ///< spans that were not taken, of a batch that was
    std::string problem;         ///< why, or what was strange; empty if all went well
    std::uint64_t requests = 0;
    std::uint64_t retries = 0;  ///< those of them that were not the first of their spans
};

/// Sends batches, one after the other, each as often as the rules of the protocol allow. Waits
/// before a further try, and before the next batch if the receiver wishes it. Used by one thread.
class BatchSender {
public:
    /// All must live as long.
    BatchSender(const Options& options,
                const SpanEncoder& encoder,
                Transport& transport,
                StopSignal& stop);

    BatchResult Send(const std::vector<ResourceSpans>& batch);

private:
    BatchResult Judge(const Answer& answer, std::uint64_t spans);
    BatchResult ReadSuccess(const Answer& answer, std::uint64_t spans) const;
    StopSignal::Time NextTry(const Answer& answer);

    const Options& m_options;
    const SpanEncoder& m_encoder;
    Transport& m_transport;
    StopSignal& m_stop;
    RetryPolicy m_policy;
    StopSignal::Time m_notBefore{};
};

}  // namespace tarn::otlp
