#pragma once

#include <string>
#include <string_view>

namespace tarn::otlp {

/// What has come back to a request.
struct Answer {
    enum class Kind {
        Answered,
        Failed,    ///< no answer: no connection, or it broke, or it took too long
        Hopeless,  ///< it could not be tried, and will not be able to be: a certificate cannot be
                   ///< read
        Stopped,   ///< there was no time left
    };

    Kind kind = Kind::Failed;
    int status = 0;
    std::string contentType;
    std::string retryAfter;  ///< as the header says
    std::string body;
    std::string error;  ///< if there is no answer
};

/// Takes a request to a receiver. Used by one thread.
class Transport {
public:
    Transport() = default;
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;
    virtual ~Transport() = default;

    virtual Answer Post(std::string_view body) = 0;
};

}  // namespace tarn::otlp
