#include "Matchers.h"

#include <array>
#include <cstdio>
#include <memory>
#include <ostream>
#include <utility>

namespace tarn::test {

namespace {

using testing::MatchResultListener;

const char* NameOf(Table table) {
    switch (table) {
        case Table::Activity:
            return "activity";
        case Table::Body:
            return "body";
        case Table::Attributes:
            return "attributes";
        case Table::Environment:
            return "environment";
    }
    return "";
}

const TLog::Value* ValueOf(const TLog::Event& event, Table table) {
    if (table == Table::Body) {
        return event.GetBody().get();
    }
    const TLog::ActivityInfo* information = event.GetActivityInfo();
    if (information == nullptr) {
        return nullptr;
    }
    switch (table) {
        case Table::Activity:
            return information->GetActivity().get();
        case Table::Attributes:
            return information->GetAttributes().get();
        case Table::Environment:
            return information->GetEnvironment().get();
        case Table::Body:
            break;
    }
    return nullptr;
}

class PhaseMatcher : public testing::MatcherInterface<const TLog::Event&> {
public:
    PhaseMatcher(std::string phase, std::string scopeName)
        : m_phase(std::move(phase)),
          m_scopeName(std::move(scopeName)) {}

    bool MatchAndExplain(const TLog::Event& event, MatchResultListener* listener) const override {
        const std::string name = event.GetName().ToUtf8();
        if (name != m_phase + "-" + m_scopeName) {
            *listener << "which is named \"" << name << "\"";
            return false;
        }
        if (Field(event, Table::Activity, "type") != LogValue(m_phase)) {
            *listener << "whose field \"type\" does not go with its name";
            return false;
        }
        return true;
    }

    void DescribeTo(std::ostream* out) const override {
        *out << m_phase << "s \"" << m_scopeName << "\"";
    }

private:
    std::string m_phase;
    std::string m_scopeName;
};

class FieldMatcher : public testing::MatcherInterface<const TLog::Event&> {
public:
    /// Without a value the field must not be there.
    FieldMatcher(Table table, std::string name, std::optional<LogValue> value)
        : m_table(table),
          m_name(std::move(name)),
          m_value(std::move(value)) {}

    bool MatchAndExplain(const TLog::Event& event, MatchResultListener* listener) const override {
        const std::optional<LogValue> value = Field(event, m_table, m_name);
        *listener << "whose " << NameOf(m_table) << " field \"" << m_name << "\" is "
                  << (value ? value->Text() : "missing");
        return value == m_value;
    }

    void DescribeTo(std::ostream* out) const override {
        if (m_value) {
            *out << "has the " << NameOf(m_table) << " field \"" << m_name
                 << "\" = " << m_value->Text();
        } else {
            *out << "has no " << NameOf(m_table) << " field \"" << m_name << "\"";
        }
    }

private:
    Table m_table;
    std::string m_name;
    std::optional<LogValue> m_value;
};

EventMatcher FieldNames(Table table, const std::vector<std::string>& names) {
    const auto namesOf = [table](const TLog::Event& event) {
        std::vector<std::string> found;
        for (const auto& field : Fields(event, table)) {
            found.push_back(field.first);
        }
        return found;
    };
    return testing::ResultOf(
        std::string("the names of the fields of the ") + NameOf(table) + " table",
        namesOf,
        testing::UnorderedElementsAreArray(names));
}

template <class Expected, class Getter>
EventMatcher Information(const std::string& what, Getter getter, const Expected& expected) {
    const auto read = [getter](const TLog::Event& event) -> std::optional<Expected> {
        const TLog::ActivityInfo* information = event.GetActivityInfo();
        return information == nullptr ? std::nullopt
                                      : std::optional<Expected>(getter(*information));
    };
    return testing::ResultOf(what, read, testing::Optional(expected));
}

}  // namespace

std::map<std::string, LogValue> Fields(const TLog::Event& event, Table table) {
    std::map<std::string, LogValue> fields;
    const TLog::Value* value = ValueOf(event, table);
    if (value != nullptr && value->GetKind() == TLog::ValueKind::Object) {
        for (const auto& [name, held] : static_cast<const TLog::Object&>(*value).GetFields()) {
            fields.emplace(name.ToUtf8(), LogValue::Of(held.get()));
        }
    }
    return fields;
}

std::optional<LogValue> Field(const TLog::Event& event, Table table, const std::string& name) {
    const std::map<std::string, LogValue> fields = Fields(event, table);
    const auto found = fields.find(name);
    return found == fields.end() ? std::nullopt : std::optional<LogValue>(found->second);
}

EventMatcher Begins(const std::string& scopeName) {
    return EventMatcher(new PhaseMatcher("begin", scopeName));
}

EventMatcher Ends(const std::string& scopeName) {
    return EventMatcher(new PhaseMatcher("end", scopeName));
}

EventMatcher HasActivityField(const std::string& name, const LogValue& value) {
    return EventMatcher(new FieldMatcher(Table::Activity, name, value));
}

EventMatcher HasBodyField(const std::string& name, const LogValue& value) {
    return EventMatcher(new FieldMatcher(Table::Body, name, value));
}

EventMatcher HasAttribute(const std::string& name, const LogValue& value) {
    return EventMatcher(new FieldMatcher(Table::Attributes, name, value));
}

EventMatcher HasEnvironmentField(const std::string& name, const LogValue& value) {
    return EventMatcher(new FieldMatcher(Table::Environment, name, value));
}

EventMatcher LacksActivityField(const std::string& name) {
    return EventMatcher(new FieldMatcher(Table::Activity, name, std::nullopt));
}

EventMatcher LacksBodyField(const std::string& name) {
    return EventMatcher(new FieldMatcher(Table::Body, name, std::nullopt));
}

EventMatcher LacksAttribute(const std::string& name) {
    return EventMatcher(new FieldMatcher(Table::Attributes, name, std::nullopt));
}

EventMatcher LacksEnvironmentField(const std::string& name) {
    return EventMatcher(new FieldMatcher(Table::Environment, name, std::nullopt));
}

EventMatcher HasExactlyActivityFields(const std::vector<std::string>& names) {
    return FieldNames(Table::Activity, names);
}

EventMatcher HasExactlyBodyFields(const std::vector<std::string>& names) {
    return FieldNames(Table::Body, names);
}

EventMatcher HasExactlyAttributes(const std::vector<std::string>& names) {
    return FieldNames(Table::Attributes, names);
}

EventMatcher HasExactlyEnvironmentFields(const std::vector<std::string>& names) {
    return FieldNames(Table::Environment, names);
}

EventMatcher HappensAt(int64 ticks) {
    return Information(
        "its time",
        [](const TLog::ActivityInfo& information) {
            return information.GetTime().time_since_epoch().count();
        },
        ticks);
}

EventMatcher HasProcessId(uint32 id) {
    return Information(
        "its process id",
        [](const TLog::ActivityInfo& information) { return information.GetProcessId(); },
        id);
}

EventMatcher HasThreadId(uint64 id) {
    return Information(
        "its thread id",
        [](const TLog::ActivityInfo& information) { return information.GetThreadId(); },
        id);
}

EventMatcher HasSession(const std::string& session) {
    return Information(
        "its session",
        [](const TLog::ActivityInfo& information) { return information.GetSessionId().ToUtf8(); },
        session);
}

EventMatcher HasRequest(const std::string& request) {
    return Information(
        "its request",
        [](const TLog::ActivityInfo& information) { return information.GetRequestId().ToUtf8(); },
        request);
}

EventMatcher HasUser(const std::string& user) {
    return Information(
        "its user",
        [](const TLog::ActivityInfo& information) { return information.GetUser().ToUtf8(); },
        user);
}

EventMatcher HasSite(const std::string& site) {
    return Information(
        "its site",
        [](const TLog::ActivityInfo& information) { return information.GetSite().ToUtf8(); },
        site);
}

testing::Matcher<const LogicException&> IsLogicError(const std::string& file,
                                                     int line,
                                                     const std::string& text,
                                                     uint32 code) {
    std::array<char, 16> digits{};
    std::snprintf(digits.data(), digits.size(), "%08X", code);
    const auto errorText = [](const LogicException& error) {
        return error.GetError().GetText().ToUtf8();
    };
    return testing::AllOf(
        testing::Property("file", &LogicException::GetFile, file),
        testing::Property("line", &LogicException::GetLine, line),
        testing::Property("text", &LogicException::GetText, text),
        testing::Property("code", &LogicException::GetErrorCode, code),
        testing::ResultOf("the error's text",
                          errorText,
                          std::string("LogicException_LogicAssert_0x") + digits.data()));
}

}  // namespace tarn::test

namespace TLog {

void PrintTo(const Event& event, std::ostream* out) {
    using tarn::test::Table;

    *out << event.GetName().ToUtf8();
    if (const ActivityInfo* information = event.GetActivityInfo()) {
        *out << " at " << information->GetTime().time_since_epoch().count() << ", process "
             << information->GetProcessId() << ", thread " << information->GetThreadId()
             << ", session " << information->GetSessionId().ToUtf8() << ", request "
             << information->GetRequestId().ToUtf8() << ", user " << information->GetUser().ToUtf8()
             << ", site " << information->GetSite().ToUtf8();
    }
    for (const Table table :
         {Table::Activity, Table::Body, Table::Attributes, Table::Environment}) {
        *out << "\n    " << tarn::test::NameOf(table) << ' '
             << tarn::test::LogValue::Of(tarn::test::ValueOf(event, table)).Text();
    }
}

}  // namespace TLog
