#pragma once

#include "RequestContext.h"

#include "tarn/Trace.h"

#include <httplib.h>
#include <string>

namespace packagesearch {

/// The activity of one HTTP request, on the thread that serves it, from construction to
/// destruction. With tracing headers it continues the caller's tree, so that the logs of both
/// processes hold one tree; without them, or with wrong ones, it begins its own.
///
/// It is made when the HTTP server has read and parsed the request, and ends before the answer is
/// sent: what a slow client takes for its part is not the service's time.
class RequestScope {
public:
    RequestScope(const httplib::Request& request, const std::string& site);

    RequestScope(const RequestScope&) = delete;
    RequestScope& operator=(const RequestScope&) = delete;

    /// For whom the request is.
    const RequestAttributes& Attributes() const noexcept { return m_attributes; }

    /// The id of the tree's root: what to look for in the logs.
    std::string TraceId() const { return std::string(m_scope.GetRootId().View()); }

    /// What becomes of the request, for the log; the last report counts.
    void Fail(const std::string& reason, const std::string& message);

    void FailCurrentException() noexcept { m_scope.FailCurrentException(); }

    void Cancel(const std::string& reason, const std::string& message);

    /// More about the request, for its end line.
    void Add(const char* name, const std::string& value) { m_scope.Add(name, value); }

private:
    RequestAttributes m_attributes;
    tarn::Scope m_scope;
};

}  // namespace packagesearch
