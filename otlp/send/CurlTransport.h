#pragma once

#include "send/StopSignal.h"
#include "send/Transport.h"

#include "tarn/otlp/Options.h"

#include <memory>
#include <string>
#include <string_view>

namespace tarn::otlp {

/// HTTP by libcurl. A connection is kept from request to request.
class CurlTransport final : public Transport {
public:
    /// `stop` must live as long; what is on its way when it says so is broken off. Throws
    /// `std::bad_alloc`.
    CurlTransport(const Options& options, std::string_view contentType, StopSignal& stop);
    ~CurlTransport() override;

    Answer Post(std::string_view body) override;

private:
    struct Handles;

    std::string Perform();

    const Options m_options;
    StopSignal& m_stop;
    std::unique_ptr<Handles> m_handles;
};

}  // namespace tarn::otlp
