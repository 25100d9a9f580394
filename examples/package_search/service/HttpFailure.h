#pragma once

#include <stdexcept>
#include <string>

namespace packagesearch {

/// A request that gets an error as its answer.
class HttpFailure : public std::runtime_error {
public:
    /// The reason is a word for programs, in the answer and in the log.
    HttpFailure(int status, const char* reason, const std::string& message)
        : std::runtime_error(message),
          m_status(status),
          m_reason(reason) {}

    int Status() const noexcept { return m_status; }

    const char* Reason() const noexcept { return m_reason; }

private:
    int m_status;
    const char* m_reason;
};

inline HttpFailure BadRequest(const std::string& message) {
    return {400, "bad-request", message};
}

inline HttpFailure NotFound(const std::string& message) {
    return {404, "not-found", message};
}

}  // namespace packagesearch
