#include "RequestScope.h"

#include "ActivityNames.h"
#include "PlainText.h"

#include "tarn/Headers.h"

#include <cstddef>

namespace packagesearch {

namespace {

constexpr std::size_t longestDescription = 200;

// Headers are from outside. One that is not what it should be counts as not there.
std::string Header(const httplib::Request& request, const char* name) {
    constexpr std::size_t longest = 64;
    const std::string value = request.get_header_value(name);
    return IsPlainText(value, longest) ? value : std::string();
}

std::string Describe(const httplib::Request& request) {
    const std::string text = request.method + " " + request.path;
    return IsPlainText(text, longestDescription) ? text : "(a request line that is no plain text)";
}

RequestAttributes ReadAttributes(const httplib::Request& request, const std::string& site) {
    RequestAttributes attributes;
    attributes.user = Header(request, "X-User");
    attributes.site = site;
    attributes.sessionId = Header(request, "X-Session");
    attributes.description = Describe(request);
    attributes.requestId = Header(request, "X-Request-Id");
    if (attributes.requestId.empty()) {
        attributes.requestId = NewRequestId();
    }
    return attributes;
}

tarn::Handoff ReadSender(const httplib::Request& request, const RequestAttributes& attributes) {
    return tarn::Extract(request,
                         {{"rid", attributes.requestId},
                          {"user", attributes.user},
                          {"site", attributes.site},
                          {"sid", attributes.sessionId},
                          {"req-desc", attributes.description}});
}

}  // namespace

RequestScope::RequestScope(const httplib::Request& request, const std::string& site)
    : m_attributes(ReadAttributes(request, site)),
      m_scope(ReadSender(request, m_attributes), activity::httpRequest) {}

void RequestScope::Fail(const std::string& reason, const std::string& message) {
    m_scope.Fail(reason, {{attribute::message, message}});
}

void RequestScope::Cancel(const std::string& reason, const std::string& message) {
    m_scope.Cancel({{attribute::reason, reason}, {attribute::message, message}});
}

}  // namespace packagesearch
