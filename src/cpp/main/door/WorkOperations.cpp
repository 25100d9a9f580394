// What is said of work: attributes, supplements and outcomes.
#include "ActivityTokenText.h"
#include "AttributePairs.h"
#include "MisuseWarning.h"
#include "ScopeAccess.h"
#include "Work.h"

#include "tarn/ExceptionParser.h"
#include "tarn/Trace.h"

#include <algorithm>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

namespace tarn {
namespace {

using abi::tarn_attribute;
using abi::tarn_work;

/// Runs the action with the work's scope. What there is no memory for is missing.
template <class Action>
void WithScope(tarn_work* work, Action&& action) noexcept {
    if (work == nullptr || work->kind == Kind::Off) {
        return;
    }
    try {
        if (work->kind != Kind::Activity) {
            action(static_cast<ScopeWork*>(work)->Scope());
            return;
        }
        auto& activity = *static_cast<ActivityWork*>(work);
        const std::lock_guard guard(activity.lock);
        if (activity.run.has_value()) {
            action(activity.run->Scope());
        } else if (activity.hasEnded.load(std::memory_order_relaxed)) {
            WarnOfMisuse(activity.name, u"was used after its end");
        }
    } catch (...) {  // NOLINT(bugprone-empty-catch): the host goes on without this record
    }
}

TString TextOf(const char* text, std::size_t length) {
    if (text == nullptr) {
        return {};
    }
    return TString::FromUtf8(length == TARN_TO_NUL ? std::string_view(text)
                                                   : std::string_view(text, length));
}

void FailByException(ActivityScope& scope, const TString& type, const TString& message) {
    const TokenStrings& tokens = Tokens();
    Metrics::NameValueList result;
    result.emplace_back(tokens.resultKeyAttr, tokens.exceptionAttr);
    result.emplace_back(tokens.typeAttr, type);
    result.emplace_back(tokens.messageAttr, message);
    ScopeAccess::Fail(scope, std::move(result));
}

TString IdOf(const ActivityContext& context, int32 which) {
    switch (which) {
        case abi::TARN_ACTIVITY_ID:
            return context.GetActivityId();
        case abi::TARN_ROOT_ID:
            return context.GetRootId();
        case abi::TARN_SPONSOR_ID:
            return context.GetSponsorId();
        case abi::TARN_REQUEST_ID:
            return context.GetRequestId();
        default:
            return {};
    }
}

}  // namespace
}  // namespace tarn

namespace tarn::abi {

void tarn_add(tarn_work* work, const tarn_attribute* attributes, std::size_t count) noexcept {
    WithScope(work, [&](ActivityScope& scope) {
        ScopeAccess::Add(scope, AttributePairs(attributes, count));
    });
}

void tarn_log(tarn_work* work, const tarn_attribute* attributes, std::size_t count) noexcept {
    WithScope(work, [&](ActivityScope& scope) {
        ScopeAccess::Log(scope, AttributePairs(attributes, count));
    });
}

void tarn_add_context(tarn_work* work,
                      const tarn_attribute* attributes,
                      std::size_t count) noexcept {
    if (work != nullptr && work->kind == Kind::Activity) {
        return;
    }
    WithScope(work, [&](ActivityScope& scope) {
        scope.AddContext(CustomContext(AttributePairs(attributes, count).ToList()));
    });
}

void tarn_cancel(tarn_work* work, const tarn_attribute* attributes, std::size_t count) noexcept {
    WithScope(work, [&](ActivityScope& scope) {
        scope.Cancel(AttributePairs(attributes, count).ToList());
    });
}

void tarn_fail(tarn_work* work,
               const char* reason,
               std::size_t reason_length,
               const tarn_attribute* attributes,
               std::size_t count) noexcept {
    WithScope(work, [&](ActivityScope& scope) {
        Metrics::NameValueList result = AttributePairs(attributes, count).ToList();
        result.emplace_back(Tokens().resultKeyAttr, TextOf(reason, reason_length));
        ScopeAccess::Fail(scope, std::move(result));
    });
}

void tarn_fail_exception(tarn_work* work,
                         const char* type,
                         std::size_t type_length,
                         const char* message,
                         std::size_t message_length) noexcept {
    WithScope(work, [&](ActivityScope& scope) {
        FailByException(scope, TextOf(type, type_length), TextOf(message, message_length));
    });
}

void FailException(tarn_work* work, const std::exception& exception) noexcept {
    WithScope(work, [&](ActivityScope& scope) {
        const ExceptionInfo info = ExceptionParser::ParseException(exception);
        FailByException(scope, info.type, info.message);
    });
}

void FailCurrentException(tarn_work* work) noexcept {
    const std::exception_ptr exception = std::current_exception();
    if (exception == nullptr) {
        return;
    }
    WithScope(work, [&](ActivityScope& scope) {
        const ExceptionInfo info = ExceptionParser::ParseException(exception);
        FailByException(scope, info.type, info.message);
    });
}

std::size_t tarn_get_id(const tarn_work* work,
                        int32_t which,
                        char* room,
                        std::size_t size) noexcept {
    std::string id;
    WithScope(const_cast<tarn_work*>(work), [&](const ActivityScope& scope) {
        if (const ActivityContext* const context = ScopeAccess::Context(scope)) {
            id = IdOf(*context, which).ToUtf8();
        }
    });
    if (room != nullptr && size > 0) {
        const std::size_t length = std::min(id.size(), size - 1);
        id.copy(room, length);
        room[length] = '\0';
    }
    return id.size();
}

}  // namespace tarn::abi
