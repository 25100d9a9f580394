#include "tarn/ActivityContextProxy.h"

#include "ActivityTokenText.h"
#include "NeverDestroyed.h"

#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"

#include <unordered_set>
#include <utility>

namespace tarn {
namespace {

using Metrics::NameValueList;

const std::unordered_set<TString>& NamesOwnedByContext() {
    static const NeverDestroyed<std::unordered_set<TString>> names(
        std::unordered_set<TString>{Tokens().ridAttr,
                                    Tokens().foregroundRootAttr,
                                    Tokens().depthAttr,
                                    Tokens().serviceDepthAttr,
                                    Tokens().activityIdAttr,
                                    Tokens().sponsorActivityIdAttr});
    return names.Get();
}

// While the library is loaded, so that no first use can meet a fork.
[[maybe_unused]] const std::unordered_set<TString>& madeAtLoad = NamesOwnedByContext();

/// What an adopted context owns: the caller's attributes do not override it.
bool IsOwnedByContext(const TString& name) {
    return NamesOwnedByContext().count(name) != 0;
}

NameValueList ToPairs(const ActivityContextProxy::Attributes& attributes) {
    NameValueList pairs;
    pairs.reserve(attributes.size());
    for (const auto& [name, value] : attributes) {
        pairs.emplace_back(name, value);
    }
    return pairs;
}

NameValueList ToPairsWithoutContext(const ActivityContextProxy::Attributes& attributes) {
    NameValueList pairs;
    for (const auto& [name, value] : attributes) {
        if (!IsOwnedByContext(name)) {
            pairs.emplace_back(name, value);
        }
    }
    return pairs;
}

TString Find(const ActivityContextProxy::Attributes& attributes, const TString& name) {
    const auto found = attributes.find(name);
    return found == attributes.end() ? TString() : found->second;
}

std::shared_ptr<ActivityContext> ReadContext(const ActivityContextProxy::Attributes& attributes) {
    const TokenStrings& tokens = Tokens();
    return std::make_shared<ActivityContext>(Find(attributes, tokens.ridAttr),
                                             Find(attributes, tokens.foregroundRootAttr),
                                             Find(attributes, tokens.activityIdAttr),
                                             Find(attributes, tokens.sponsorActivityIdAttr),
                                             Find(attributes, tokens.depthAttr).toInt(10),
                                             Find(attributes, tokens.serviceDepthAttr).toInt(10));
}

}  // namespace

ActivityContextProxy::ActivityContextProxy(const std::string& name,
                                           const Attributes& activityAttributes,
                                           const Attributes& contextAttributes) {
    if (OptTarn::GetIsForegroundThreadContextEnabled() &&
        contextAttributes.count(Tokens().foregroundRootAttr) != 0) {
        const ActivityContextInitializer adopted{ReadContext(contextAttributes), true};
        m_scope =
            std::make_unique<ActivityScope>(name.c_str(),
                                            CustomContext(ToPairsWithoutContext(contextAttributes)),
                                            Traits(TraceType::Untracked),
                                            ToPairsWithoutContext(activityAttributes),
                                            adopted);
    } else {
        m_scope = std::make_unique<ActivityScope>(name.c_str(),
                                                  CustomContext(ToPairs(contextAttributes)),
                                                  Traits(TraceType::Untracked),
                                                  ToPairs(activityAttributes));
    }
}

ActivityContextProxy::~ActivityContextProxy() = default;

void ActivityContextProxy::AttachToThread() {
    if (m_scope != nullptr) {
        m_scope->AttachToThread();
    }
}

void ActivityContextProxy::DetachFromThread() {
    if (m_scope != nullptr) {
        m_scope->DetachFromThread();
    }
}

void ActivityContextProxy::Close() {
    // Out of the proxy first: nothing reaches the scope while it ends.
    const std::unique_ptr<ActivityScope> scope = std::move(m_scope);
}

void ActivityContextProxy::Cancel(const Attributes& attributes) {
    if (m_scope != nullptr) {
        m_scope->Cancel(ToPairs(attributes));
    }
}

void ActivityContextProxy::Fail(const TString& reason, const Attributes& attributes) {
    if (m_scope == nullptr || m_scope->m_off) {
        return;
    }
    NameValueList pairs = ToPairs(attributes);
    pairs.emplace_back(Tokens().resultKeyAttr, reason);
    m_scope->m_status = ActivityScope::Status::Failed;
    m_scope->AddResultToScope(std::move(pairs));
}

void ActivityContextProxy::FailException(const TString& type, const TString& message) {
    if (m_scope == nullptr || m_scope->m_off) {
        return;
    }
    NameValueList pairs;
    pairs.emplace_back(Tokens().resultKeyAttr, Tokens().exceptionAttr);
    pairs.emplace_back(Tokens().typeAttr, type);
    pairs.emplace_back(Tokens().messageAttr, message);
    m_scope->m_status = ActivityScope::Status::Failed;
    m_scope->AddResultToScope(std::move(pairs));
}

void ActivityContextProxy::PutActivityAttributes(const Attributes& attributes) {
    if (m_scope != nullptr) {
        m_scope->Add(ToPairs(attributes));
    }
}

void ActivityContextProxy::PutContextAttributes(const Attributes& attributes) {
    if (m_scope != nullptr) {
        m_scope->AddContext(CustomContext(ToPairs(attributes)));
    }
}

}  // namespace tarn
