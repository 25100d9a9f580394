#pragma once

#include "Deadline.h"
#include "RequestContext.h"

#include <httplib.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace packagesearch {

/// Asks another instance of this service. Holds no connection; any thread may call it.
class PeerClient {
public:
    /// "http://HOST:PORT"; throws `std::invalid_argument` with one line for anything else.
    explicit PeerClient(const std::string& url);

    /// The names of the packages that ask for a package, as the activity "call-peer" of the
    /// caller's current one, which the peer goes on with. Throws `HttpFailure`: 502 when the peer
    /// cannot be reached or answers rubbish, 503 when it is busy, 504 when it is too slow.
    std::vector<std::string> Dependents(const std::string& package,
                                        const RequestAttributes& request,
                                        const WorkLimits& limits) const;

    const std::string& Url() const noexcept { return m_url; }

private:
    // The body goes into a text of its own.
    httplib::Result Get(const std::string& path,
                        const RequestAttributes& request,
                        const Deadline& deadline,
                        std::string& body) const;

    std::string m_url;
    std::string m_host;
    int m_port = 0;
};

}  // namespace packagesearch
