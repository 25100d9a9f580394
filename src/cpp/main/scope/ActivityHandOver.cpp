#include "tarn/ActivityHandOver.h"

#include "ThreadActivityRegistry.h"

#include "tarn/ThreadContextPropagator.h"

#include <memory>
#include <utility>

namespace tarn {

struct ActivityHandOver::Origin {
    ThreadContextPropagator activity;
    // Never opened for scopes. The contexts of the runs are its children and inherit through it
    // what held where the work was handed over, though that may have ended by then.
    Metrics::Context context{0, Metrics::Context::Create(false)};
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

uint64 CreateChildOf(Metrics::Context& parent) {
    const Attachment attachment(parent);
    return Metrics::Context::Create(false);
}

/// The same identity, to be current beside the original: each can leave without the other.
std::shared_ptr<ActivityContext> CopyOf(const std::shared_ptr<ActivityContext>& context) {
    return context != nullptr ? std::make_shared<ActivityContext>(*context) : nullptr;
}

}  // namespace

ActivityHandOver::ActivityHandOver() : m_origin(std::make_shared<Origin>()) {}

ActivityHandOver::Run::OpenContext::OpenContext(const ActivityHandOver& handOver)
    : context(0,
              handOver.m_origin != nullptr ? CreateChildOf(handOver.m_origin->context)
                                           : Metrics::Context::Create(true)) {
    context.OpenScope();
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
              {handOver.m_origin != nullptr ? handOver.m_origin->activity.GetContext() : nullptr,
               false}) {}

void ActivityHandOver::Run::AttachToThread() {
    m_context.context.AttachToThread();
    m_scope.AttachToThread();
}

void ActivityHandOver::Run::DetachFromThread() {
    m_scope.DetachFromThread();
    m_context.context.DetachFromThread();
}

ActivityHandOver::Continuation::Continuation(const ActivityHandOver& handOver)
    : m_activity(CopyOf(handOver.m_origin != nullptr ? handOver.m_origin->activity.GetContext()
                                                     : nullptr)),
      m_context(0,
                handOver.m_origin != nullptr ? CreateChildOf(handOver.m_origin->context)
                                             : Metrics::Context::Create(true)) {
    m_context.OpenScope();
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
