#pragma once

#include "RequestContext.h"
#include "TracingHeaders.h"

#include "tarn/ActivityContextProxy.h"

#include <exception>
#include <httplib.h>
#include <string>

namespace packagesearch {

/// The activity of one HTTP request, on the thread that serves it, from construction to
/// destruction. When the caller sent tracing headers it goes on with the caller's activity, so that
/// the logs of both processes hold one tree; otherwise it begins a tree of its own.
///
/// It is made when the HTTP server has read and parsed the request, and ends before the answer is
/// sent: what a slow client takes for its part is not the service's time. The work itself belongs
/// into an activity within: this one is untracked, as everything that the proxy begins, and its
/// figures are the sums of what is within.
class RequestScope {
public:
    RequestScope(const httplib::Request& request, const std::string& site);

    RequestScope(const RequestScope&) = delete;
    RequestScope& operator=(const RequestScope&) = delete;

    /// For whom the request is.
    const RequestAttributes& Attributes() const noexcept { return m_attributes; }

    /// The id of the tree's root: what to look for in the logs.
    std::string TraceId() const;

    /// What becomes of the request, for the log; the last report counts.
    void Fail(const std::string& reason, const std::string& message);
    void Fail(const std::exception_ptr& exception);
    void Cancel(const std::string& reason, const std::string& message);

    /// More about the request, for its end line.
    void Add(const char* name, const std::string& value);

private:
    RequestScope(RequestAttributes attributes, const ReceivedContext& received);

    RequestAttributes m_attributes;
    RequestContext m_context;
    tarn::ActivityContextProxy m_activity;
};

}  // namespace packagesearch
