// What a scope says while it is open, and how it says that it failed.
#include "ActivityTokenText.h"
#include "NeverDestroyed.h"
#include "PairBuffer.h"
#include "StaticText.h"

#include "tarn/ActivityScope.h"
#include "tarn/ContextAttributesUtils.h"

#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace tarn {
namespace {

using Metrics::MetricsEventType;
using Metrics::MetricsValue;

/// The name of attribute lists and supplements travels as narrow text, unlike all other names.
const MetricsValue& NarrowActivityAttributesName() {
    static const NeverDestroyed<std::string> text(Tokens().activityAttributes.ToUtf8());
    static const NeverDestroyed<MetricsValue> name(ReferToStaticText(text.Get()));
    return name.Get();
}

// While the library is loaded, so that no first use can meet a fork.
[[maybe_unused]] const MetricsValue& madeAtLoad = NarrowActivityAttributesName();

}  // namespace

constinit const wchar_t* const ActivityScope::canceledAttrToken = ActivityTokenText::canceledAttr;
constinit const wchar_t* const ActivityScope::earlyTerminationAttrToken =
    ActivityTokenText::earlyTerminationAttr;
constinit const wchar_t* const ActivityScope::errorCodeAttrToken = ActivityTokenText::errorCodeAttr;
constinit const wchar_t* const ActivityScope::errorSourceAttrToken =
    ActivityTokenText::errorSourceAttr;
constinit const wchar_t* const ActivityScope::errorStatusCodeAttrToken =
    ActivityTokenText::errorStatusCodeAttr;
constinit const wchar_t* const ActivityScope::exceptionAttrToken = ActivityTokenText::exceptionAttr;
constinit const wchar_t* const ActivityScope::messageAttrToken = ActivityTokenText::messageAttr;
constinit const wchar_t* const ActivityScope::resultKeyAttrToken = ActivityTokenText::resultKeyAttr;
constinit const wchar_t* const ActivityScope::typeAttrToken = ActivityTokenText::typeAttr;

void ActivityScope::Add(Attributes attributes) {
    AddToScope(attributes);
}

void ActivityScope::Add(Metrics::NameValueList&& attributes) {
    const Metrics::NameValueList pairs = std::move(attributes);
    AddToScope(PairBuffer(pairs).Span());
}

void ActivityScope::Log(Attributes attributes) {
    AddLogToScope(attributes);
}

void ActivityScope::Log(Metrics::NameValueList&& attributes) {
    const Metrics::NameValueList pairs = std::move(attributes);
    AddLogToScope(PairBuffer(pairs).Span());
}

void ActivityScope::Cancel(Metrics::NameValueList&& attributes) {
    Metrics::NameValueList pairs = std::move(attributes);
    if (m_off) {
        return;
    }
    m_status = Status::Canceled;
    pairs.emplace_back(Tokens().resultKeyAttr, Tokens().earlyTerminationAttr);
    pairs.emplace_back(Tokens().typeAttr, Tokens().canceledAttr);
    AddResultToScope(std::move(pairs));
}

void ActivityScope::AddContext(CustomContext&& context) {
    Metrics::NameValueList pairs = std::move(context.attributes);
    if (!m_off) {
        SetCustomContext(std::move(pairs));
    }
}

void ActivityScope::AddToScope(Metrics::PairSpan attributes) {
    if (!m_off && m_scope.IsOpen()) {
        m_scope.MultiEmit(
            MetricsEventType::NameValuePairs, NarrowActivityAttributesName(), attributes);
    }
}

void ActivityScope::AddLogToScope(Metrics::PairSpan attributes) {
    if (!m_off && m_scope.IsOpen()) {
        m_scope.MultiEmit(
            MetricsEventType::SupplementalPairs, NarrowActivityAttributesName(), attributes);
    }
}

void ActivityScope::AddResultToScope(Metrics::NameValueList&& attributes) {
    Metrics::NameValueList pairs = std::move(attributes);
    if (!m_off && m_scope.IsOpen()) {
        m_scope.MultiEmitImpl(
            MetricsEventType::NameValuePairs, MetricsValue(Tokens().resultAttrs), std::move(pairs));
    }
}

void ActivityScope::SetCustomContext(Metrics::NameValueList&& attributes) {
    if (attributes.empty()) {
        return;
    }
    // A scope that is off has no end at which a layer is taken back.
    if (m_off) {
        ContextAttributesUtils::SendAttributes(Tokens().addMappableContextAttributes,
                                               std::move(attributes));
        return;
    }
    if (m_postCloseEvents == nullptr) {
        m_postCloseEvents = std::make_unique<std::list<Metrics::MetricsCloseScopeActions>>();
    }
    if (m_postCloseEvents->size() >= m_postCloseEvents->max_size()) {
        throw std::length_error("list too long");
    }
    // The action first: a layer that was sent must have its removal.
    m_postCloseEvents->push_back(Metrics::MetricsCloseScopeActions::PopRequestContextAttributes);
    try {
        ContextAttributesUtils::SendAttributes(Tokens().addMappableContextAttributes,
                                               std::move(attributes));
    } catch (...) {
        m_postCloseEvents->pop_back();
        throw;
    }
}

void ActivityScope::ReportEarlyTermination() {
    Metrics::NameValueList pairs;
    pairs.emplace_back(Tokens().resultKeyAttr, Tokens().earlyTerminationAttr);
    pairs.emplace_back(Tokens().typeAttr, "stack-unwind");
    pairs.emplace_back(Tokens().messageAttr,
                       "an exception caused early termination, but the exception details are not "
                       "accessible in this context.");
    AddResultToScope(std::move(pairs));
}

}  // namespace tarn
