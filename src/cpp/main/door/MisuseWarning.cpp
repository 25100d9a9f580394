#include "MisuseWarning.h"

#include "cvlcoreplatform/TFormatString.h"
#include "cvlcoreplatform/TLog.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <functional>
#include <string_view>

namespace tarn {
namespace {

/// Without a lock: a child of a fork must be able to use it.
constinit std::array<std::atomic<std::size_t>, 256> s_said{};

bool IsFirst(const std::string& name, const char16_t* what) noexcept {
    const std::size_t mark =
        (std::hash<std::string_view>()(name) * 31 + std::hash<std::u16string_view>()(what)) | 1U;
    for (std::atomic<std::size_t>& said : s_said) {
        std::size_t found = 0;
        if (said.compare_exchange_strong(found, mark, std::memory_order_relaxed)) {
            return true;
        }
        if (found == mark) {
            return false;
        }
    }
    return false;
}

}  // namespace

void WarnOfMisuse(const std::string& name, const char16_t* what) noexcept {
    if (!IsFirst(name, what)) {
        return;
    }
    try {
        TLog::Logger::Get().LogMessage(TLog::Warn,
                                       TFormatString(u"The activity \"%1\" %2. See "
                                                     u"docs/front-door.md, \"Wrong use\".")
                                           .Arg(TString::FromUtf8(name))
                                           .Arg(what)
                                           .ToString());
    } catch (...) {  // NOLINT(bugprone-empty-catch): a warning that memory does not suffice for
    }
}

}  // namespace tarn
