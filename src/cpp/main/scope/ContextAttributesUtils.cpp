#include "tarn/ContextAttributesUtils.h"

#include "ActivityTokenText.h"

#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsManager.h"

#include <utility>

namespace tarn {

void ContextAttributesUtils::Set(Metrics::NameValueList&& attributes) {
    SendAttributes(Tokens().requestContextAttributes, std::move(attributes));
}

void ContextAttributesUtils::SetCustomContextAttributes(Metrics::NameValueList&& attributes) {
    SendAttributes(Tokens().addMappableContextAttributes, std::move(attributes));
}

void ContextAttributesUtils::SendAttributes(const TString& name,
                                            Metrics::NameValueList&& attributes) {
    Metrics::NameValueList pairs = std::move(attributes);
    if (pairs.empty() || !Metrics::TestBitsAndContext(Metrics::flagTracing)) {
        return;
    }
    Metrics::MultiAttributeImpl(
        Metrics::MetricsValue(name), std::move(pairs), Metrics::flagTracing);
}

}  // namespace tarn
