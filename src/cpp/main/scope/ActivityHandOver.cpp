#include "tarn/ActivityHandOver.h"

#include "ThreadActivityRegistry.h"

#include "tarn/ThreadContextPropagator.h"

#include "cvlmetrics/Export.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/IntegerTypes.h"

#include <memory>
#include <optional>
#include <utility>

namespace Metrics {

// A host may leave it out.
[[gnu::weak]] CVLMETRICS_API void AttributeImpl(MetricsValue&& name,
                                                MetricsValue&& value,
                                                uint64 bits);

}  // namespace Metrics

namespace tarn {

// The class that it belongs to is exported with all its members.
struct __attribute__((visibility("hidden"))) ActivityHandOver::Origin {
    std::shared_ptr<ActivityContext> activity;  ///< null if there is none

    // Never opened for scopes. The contexts of the runs are its children and inherit through it
    // what held where the work was handed over, though that may have ended by then. There is none
    // if that was another process.
    std::optional<Metrics::Context> context;

    /// What each run's request has from its beginning on.
    Metrics::NameValueList request;

    /// The id of a new context for a run.
    static uint64 CreateContext(const std::shared_ptr<Origin>& origin);

    /// Makes it the calling thread's current one.
    static void Open(const std::shared_ptr<Origin>& origin, Metrics::Context& context);
};

namespace {

/// While one exists, a metrics context is the calling thread's current one.
class Attachment {
public:
    explicit Attachment(Metrics::Context& context) : m_context(context) {
        m_context.AttachToThread();
    }

    ~Attachment() { m_context.DetachFromThread(); }

    Attachment(const Attachment&) = delete;
    Attachment& operator=(const Attachment&) = delete;

private:
    Metrics::Context& m_context;
};

/// The same identity, to be current beside the original: each can leave without the other.
std::shared_ptr<ActivityContext> CopyOf(const std::shared_ptr<ActivityContext>& context) {
    return context != nullptr ? std::make_shared<ActivityContext>(*context) : nullptr;
}

}  // namespace

uint64 ActivityHandOver::Origin::CreateContext(const std::shared_ptr<Origin>& origin) {
    if (origin == nullptr || !origin->context.has_value()) {
        return Metrics::Context::Create(true);
    }
    const Attachment attachment(*origin->context);
    return Metrics::Context::Create(false);
}

void ActivityHandOver::Origin::Open(const std::shared_ptr<Origin>& origin,
                                    Metrics::Context& context) {
    context.OpenScope();
    if (origin == nullptr || Metrics::AttributeImpl == nullptr) {
        return;
    }
    for (const auto& [name, value] : origin->request) {
        Metrics::AttributeImpl(
            Metrics::MetricsValue(name), Metrics::MetricsValue(value), Metrics::flagTracing);
    }
}

ActivityHandOver::ActivityHandOver() : m_origin(std::make_shared<Origin>()) {
    m_origin->activity = ThreadContextPropagator().GetContext();
    m_origin->context.emplace(0, Metrics::Context::Create(false));
}

ActivityHandOver::ActivityHandOver(std::shared_ptr<Origin> origin) noexcept
    : m_origin(std::move(origin)) {}

ActivityHandOver ActivityHandOver::FromElsewhere(std::shared_ptr<ActivityContext> sender,
                                                 Metrics::NameValueList request) {
    auto origin = std::make_shared<Origin>();
    origin->activity = std::move(sender);
    origin->request = std::move(request);
    return ActivityHandOver(std::move(origin));
}

ActivityHandOver::Run::OpenContext::OpenContext(const ActivityHandOver& handOver)
    : context(0, Origin::CreateContext(handOver.m_origin)) {
    Origin::Open(handOver.m_origin, context);
}

ActivityHandOver::Run::Run(const ActivityHandOver& handOver,
                           const char* name,
                           Metrics::NameValueList&& attributes)
    : Run(handOver, name, Traits(), std::move(attributes)) {}

ActivityHandOver::Run::Run(const ActivityHandOver& handOver,
                           const char* name,
                           Traits traits,
                           Metrics::NameValueList&& attributes)
    : m_context(handOver),
      m_scope(name,
              CustomContext(Metrics::NameValueList()),
              traits,
              std::move(attributes),
              {handOver.m_origin != nullptr ? handOver.m_origin->activity : nullptr, false}) {}

void ActivityHandOver::Run::AttachToThread() {
    m_context.context.AttachToThread();
    m_scope.AttachToThread();
}

void ActivityHandOver::Run::DetachFromThread() {
    m_scope.DetachFromThread();
    m_context.context.DetachFromThread();
}

ActivityHandOver::Continuation::Continuation(const ActivityHandOver& handOver)
    : m_activity(CopyOf(handOver.m_origin != nullptr ? handOver.m_origin->activity : nullptr)),
      m_context(0, Origin::CreateContext(handOver.m_origin)) {
    Origin::Open(handOver.m_origin, m_context);
    ThreadActivityRegistry::GetInstance().Push(m_activity);
}

ActivityHandOver::Continuation::~Continuation() {
    ThreadActivityRegistry::GetInstance().Remove(m_activity);
}

void ActivityHandOver::Continuation::Leave() {
    ThreadActivityRegistry::GetInstance().Remove(m_activity);
    m_context.DetachFromThread();
}

}  // namespace tarn
