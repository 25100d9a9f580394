#include "RequestScope.h"

#include "ActivityNames.h"
#include "PlainText.h"
#include "TracingHeaders.h"

#include "tarn/ActivityTracer.h"
#include "tarn/ExceptionParser.h"

#include <utility>

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

}  // namespace

RequestScope::RequestScope(const httplib::Request& request, const std::string& site)
    : RequestScope(ReadAttributes(request, site), ReadTracingHeaders(request.headers)) {}

RequestScope::RequestScope(RequestAttributes attributes, const ReceivedContext& received)
    : m_attributes(std::move(attributes)),
      m_context(m_attributes),
      m_activity(activity::httpRequest, {}, received.attributes) {
    if (!received.problem.empty()) {
        Add(attribute::ignoredHeaders, received.problem);
    }
}

std::string RequestScope::TraceId() const {
    const auto context = tarn::ActivityTracer::GetCurrentActivityContext();
    return context == nullptr ? std::string() : context->GetRootId().ToUtf8();
}

void RequestScope::Fail(const std::string& reason, const std::string& message) {
    m_activity.Fail(TString(reason), {{TString(attribute::message), TString(message)}});
}

void RequestScope::Fail(const std::exception_ptr& exception) {
    const tarn::ExceptionInfo info = tarn::ExceptionParser::ParseException(exception);
    m_activity.FailException(info.type, info.message);
}

void RequestScope::Cancel(const std::string& reason, const std::string& message) {
    m_activity.Cancel({{TString(attribute::reason), TString(reason)},
                       {TString(attribute::message), TString(message)}});
}

void RequestScope::Add(const char* name, const std::string& value) {
    m_activity.PutActivityAttributes({{TString(name), TString(value)}});
}

}  // namespace packagesearch
