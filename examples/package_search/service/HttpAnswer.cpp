#include "HttpAnswer.h"

#include "ActivityNames.h"
#include "Deadline.h"
#include "HttpFailure.h"
#include "Sqlite.h"

#include <nlohmann/json.hpp>

namespace packagesearch {

namespace {

HttpAnswer MakeError(int status, const std::string& reason, const std::string& message) {
    nlohmann::ordered_json body;
    body["error"]["status"] = status;
    body["error"]["reason"] = reason;
    body["error"]["message"] = message;
    return {status, body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n"};
}

HttpAnswer Refuse(RequestScope& scope, int status, const char* reason, const char* message) {
    scope.Fail(reason, message);
    return MakeError(status, reason, message);
}

}  // namespace

HttpAnswer AnswerFailure(RequestScope& scope, const std::exception_ptr& exception) {
    try {
        std::rethrow_exception(exception);
    } catch (const HttpFailure& failure) {
        scope.Fail(failure.Reason(), failure.what());
        return MakeError(failure.Status(), failure.Reason(), failure.what());
    } catch (const DeadlineExceeded& problem) {
        scope.Cancel("deadline", problem.what());
        return MakeError(504, "deadline", problem.what());
    } catch (const sqlite::SqliteError& problem) {
        scope.FailCurrentException();
        scope.Add(attribute::sqliteCode, std::to_string(problem.Code()));
        return problem.IsLocked()
                   ? MakeError(503, "database-locked", "the database is locked; try again")
                   : MakeError(500, "database", "the database cannot be read");
    } catch (...) {
        scope.FailCurrentException();
        return MakeError(500, "internal", "the request failed");
    }
}

HttpAnswer AnswerRefusal(RequestScope& scope, int status) {
    switch (status) {
        case 405:
            return Refuse(scope, status, "method-not-allowed", "only GET and POST are possible");
        case 411:
            return Refuse(scope, status, "no-length", "a body must come with its length");
        case 413:
            return Refuse(scope, status, "too-large", "the request's body is too large");
        case 414:
            return Refuse(scope, status, "too-long", "the request's address is too long");
        default:
            return Refuse(scope, status, "bad-request", "the request is not understood");
    }
}

void Send(const HttpAnswer& answer, const std::string& traceId, httplib::Response& response) {
    response.status = answer.status;
    response.set_header("X-Trace-Id", traceId);
    if (answer.status == 503) {
        response.set_header("Retry-After", "1");
    }
    response.set_content(answer.body, "application/json");
}

}  // namespace packagesearch
