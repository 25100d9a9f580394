#include "MetricsManagerAccess.h"

#include <type_traits>

namespace Metrics {

static_assert(std::is_standard_layout_v<MetricsManager> &&
                  sizeof(MetricsManager) == sizeof(std::atomic<uint64>),
              "The count of consumers is the first word of the manager.");

constinit MetricsManager MetricsManagerAccess::s_manager;

MetricsManager& MetricsManager::GetInstance() noexcept {
    return MetricsManagerAccess::s_manager;
}

}  // namespace Metrics
