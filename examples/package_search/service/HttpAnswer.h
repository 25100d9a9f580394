#pragma once

#include "RequestScope.h"

#include <exception>
#include <httplib.h>
#include <string>

namespace packagesearch {

/// What goes to the client: a status and a JSON text.
struct HttpAnswer {
    int status = 200;
    std::string body;
};

/// The answer for a request that failed in whatever way, which is noted in the request's scope: a
/// deadline as a cancellation, a refusal with its reason, anything else as the exception that it
/// was. Clients learn nothing about the inside from the latter.
HttpAnswer AnswerFailure(RequestScope& scope, const std::exception_ptr& exception);

/// The answer for a request that the HTTP server itself refused with this status.
HttpAnswer AnswerRefusal(RequestScope& scope, int status);

/// Puts an answer into the response, with the id by which its request is found in the logs.
void Send(const HttpAnswer& answer, const std::string& traceId, httplib::Response& response);

}  // namespace packagesearch
