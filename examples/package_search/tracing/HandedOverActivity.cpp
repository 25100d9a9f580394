#include "HandedOverActivity.h"

#include "ActivityNames.h"
#include "Deadline.h"

#include "tarn/ActivityScope.h"

namespace packagesearch {

HandedOverActivity::HandedOverActivity()
    : m_context(std::make_unique<Metrics::Context>(0, Metrics::Context::Create(false))),
      m_handedOver(std::chrono::steady_clock::now()) {}

void HandedOverActivity::Run(const char* name,
                             std::size_t worker,
                             const std::function<void()>& work) {
    const auto waited = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - m_handedOver);
    // Ends behind the scope below, also when the work throws.
    const std::unique_ptr<Metrics::Context> context = std::move(m_context);
    context->OpenScope();
    tarn::ActivityScope scope(
        name,
        tarn::CustomContext(Metrics::NameValueList()),
        tarn::Traits(),
        {{attribute::worker, worker}, {attribute::waitedMicroseconds, waited.count()}},
        tarn::ActivityContextInitializer{m_asking.GetContext(), false});
    try {
        work();
    } catch (const DeadlineExceeded&) {
        scope.Cancel({{attribute::reason, "deadline"}});
        throw;
    }
}

}  // namespace packagesearch
