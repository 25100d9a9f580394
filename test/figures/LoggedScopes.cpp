#include "LoggedScopes.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/TString.h"

#include <cmath>
#include <cstdlib>

namespace figures {
namespace {

class Reader {
public:
    explicit Reader(int scopes) { m_log.scopes.resize(static_cast<std::size_t>(scopes)); }

    void Read(const TLog::Event& event) {
        const TLog::ActivityInfo* const information = event.GetActivityInfo();
        if (information == nullptr) {
            Complain(event, "is no activity event");
            return;
        }
        m_event = &event;
        const TLog::Value* const activity = information->GetActivity().get();
        const int number = NumberOf(event);
        if (number < 0) {
            return;
        }
        LoggedScope& scope = m_log.scopes[static_cast<std::size_t>(number)];
        const TLog::Literal* const root = Find(activity, u"root");
        scope.root = (root != nullptr ? root : Find(activity, u"id"))->GetString().ToUtf8();
        if (event.GetName().ToUtf8().rfind("begin-", 0) == 0) {
            ++scope.begins;
            return;
        }
        ++scope.ends;
        scope.elapsed = Double(activity, u"elapsed");
        scope.exclusiveTime = Double(activity, u"exclusive");
        const TLog::Value* const resources = Member(activity, u"res");
        const TLog::Value* const allocations = Member(resources, u"alloc");
        const TLog::Value* const releases = Member(resources, u"free");
        const TLog::Value* const kernel = Member(resources, u"kcpu");
        const TLog::Value* const program = Member(resources, u"ucpu");
        scope.inclusive = {Bytes(allocations, u"ai"),
                           Int(allocations, u"ani"),
                           Bytes(releases, u"di"),
                           Int(releases, u"dni"),
                           Int(kernel, u"ki"),
                           Int(program, u"ui")};
        scope.exclusive = {Bytes(allocations, u"ae"),
                           Int(allocations, u"ane"),
                           Bytes(releases, u"de"),
                           Int(releases, u"dne"),
                           Int(kernel, u"ke"),
                           Int(program, u"ue")};
        scope.peak = Bytes(allocations, u"apeak");
        scope.threads = Int(resources, u"ntid");
    }

    LoggedScopes Take() { return std::move(m_log); }

private:
    void Complain(const TLog::Event& event, const std::string& what) {
        m_log.problem += event.GetName().ToUtf8() + " " + what + "\n";
    }

    static const TLog::Value* Member(const TLog::Value* object, const char16_t* name) {
        if (object == nullptr || object->GetKind() != TLog::ValueKind::Object) {
            return nullptr;
        }
        const auto& fields = static_cast<const TLog::Object*>(object)->GetFields();
        const auto found = fields.find(TString(name));
        return found == fields.end() ? nullptr : found->second.get();
    }

    static const TLog::Literal* Find(const TLog::Value* object, const char16_t* name) {
        const TLog::Value* const value = Member(object, name);
        return value != nullptr && value->GetKind() == TLog::ValueKind::Literal
                   ? static_cast<const TLog::Literal*>(value)
                   : nullptr;
    }

    double Double(const TLog::Value* object, const char16_t* name) {
        const TLog::Literal* const literal = Find(object, name);
        if (literal == nullptr || literal->GetType() != TLog::LiteralType::Double) {
            Complain(*m_event, "has no number " + TString(name).ToUtf8());
            return 0;
        }
        return literal->GetDouble();
    }

    /// Bytes are written as doubles; those of the tests are whole and small enough to be exact.
    int64 Bytes(const TLog::Value* object, const char16_t* name) {
        return static_cast<int64>(Double(object, name));
    }

    int64 Int(const TLog::Value* object, const char16_t* name) {
        const TLog::Literal* const literal = Find(object, name);
        if (literal == nullptr || literal->GetType() != TLog::LiteralType::Integer) {
            Complain(*m_event, "has no whole number " + TString(name).ToUtf8());
            return 0;
        }
        return literal->GetInt();
    }

    /// Scopes are named by their number, those that must have another name carry it.
    int NumberOf(const TLog::Event& event) {
        const std::string name = event.GetName().ToUtf8();
        const std::string scope = name.substr(name.find('-') + 1);
        int number = -1;
        if (scope == "request") {
            const TLog::Literal* const carried = Find(event.GetBody().get(), u"scope");
            if (carried == nullptr) {
                return -1;  // a begin event does not have it yet
            }
            number = static_cast<int>(carried->GetInt());
        } else {
            number = std::atoi(scope.c_str() + 1);
        }
        if (number < 0 || static_cast<std::size_t>(number) >= m_log.scopes.size()) {
            Complain(event, "is of no scope of the script");
            return -1;
        }
        return number;
    }

    LoggedScopes m_log;
    const TLog::Event* m_event = nullptr;
};

}  // namespace

LoggedScopes ReadLog(const tarn::test::CapturedEvents& events, int scopes) {
    Reader reader(scopes);
    for (const TLog::Event& event : events) {
        reader.Read(event);
    }
    return reader.Take();
}

int64 Milliseconds(double seconds) {
    return std::llround(seconds * 1000);
}

}  // namespace figures
