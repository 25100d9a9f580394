#pragma once

#include "tarn/ICarrier.h"

#include <httplib.h>

namespace packagesearch {

/// Takes the tracer's headers into an HTTP request that is about to be sent. The headers must
/// outlive it.
class HttpCarrier : public tarn::ICarrier {
public:
    explicit HttpCarrier(httplib::Headers& headers) : m_headers(headers) {}

    void Set(const TString& name, const TString& value) override {
        m_headers.emplace(name.ToUtf8(), value.ToUtf8());
    }

private:
    httplib::Headers& m_headers;
};

}  // namespace packagesearch
