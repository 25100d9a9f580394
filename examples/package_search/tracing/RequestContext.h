#pragma once

#include "cvlmetrics/Context.h"

#include <string>

namespace packagesearch {

/// For whom and what for something is done; every line of the log about it carries these.
struct RequestAttributes {
    std::string user;
    std::string site;
    std::string sessionId;
    std::string description;
    std::string requestId = {};  ///< empty: a new one
};

/// An id that no other request of this machine has.
std::string NewRequestId();

/// The metrics context of one request, current on the thread that made it for as long as it
/// lives. Make it before the request's first activity and let it go after the last one; it has an
/// id of its own ("rid").
///
/// An activity that finds its thread without a context makes one by itself. That would be too
/// late here: what is known about the request must be there before the first activity begins, or
/// its begin line says "-" for the user and the site. And it must go to a context that serves
/// this request alone, as every root activity starts with an empty set of request attributes.
class RequestContext {
public:
    explicit RequestContext(const RequestAttributes& attributes);
    ~RequestContext() = default;
    RequestContext(const RequestContext&) = delete;
    RequestContext& operator=(const RequestContext&) = delete;

private:
    Metrics::Context m_context;
};

}  // namespace packagesearch
