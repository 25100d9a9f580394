#include "cvlcoreplatform/TLogEventBuilder.h"

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace TLog {

namespace {

using ObjectId = EventBuilder::ObjectId;

// Those that every event has.
constexpr std::size_t firstObjects = 4;

constexpr std::size_t mostObjects = 256;

TString ToText(const TextView& text) {
    return text.IsUtf8() ? TString::FromUtf8(text.GetUtf8()) : TString(text.GetUtf16());
}

}  // namespace

/// The tables that become the event's objects.
class GatheredFields {
public:
    void Add(ObjectId object, const TString& name, std::shared_ptr<Value> value) {
        if (object == ObjectId::Line) {
            m_line.insert_or_assign(name, std::move(value));
            return;
        }
        m_tables[static_cast<std::size_t>(object)].insert_or_assign(name, std::move(value));
    }

    ObjectId AddObject(ObjectId parent, const TString& name) {
        if (m_tables.size() == mostObjects) {
            throw std::length_error("an event has too many objects");
        }
        m_children.push_back({parent, name});
        try {
            m_tables.emplace_back();
        } catch (...) {
            m_children.pop_back();
            throw;
        }
        return static_cast<ObjectId>(m_tables.size() - 1);
    }

    /// An object comes before those inside of it: from behind, each is complete when its turn
    /// comes.
    void CloseObjects() {
        for (; !m_children.empty(); m_children.pop_back()) {
            const auto last = static_cast<ObjectId>(m_tables.size() - 1);
            Add(m_children.back().parent, m_children.back().name, Take(last));
            m_tables.pop_back();
        }
    }

    std::shared_ptr<Object> Take(ObjectId object) {
        return Object::Make(std::move(m_tables[static_cast<std::size_t>(object)]));
    }

    /// The information with what was added to the line. Who writes it leaves out names of its own.
    ActivityInfo Complete(ActivityInfo information) {
        return m_line.empty() ? information
                              : information.WithFurtherFields(Object::Make(std::move(m_line)));
    }

    TString session;
    TString request;
    TString user;
    TString site;

private:
    struct Child {
        ObjectId parent;
        TString name;
    };

    NameTable m_line;
    std::vector<NameTable> m_tables = std::vector<NameTable>(firstObjects);
    // Of the tables behind the first ones.
    std::vector<Child> m_children;
};

EventBuilder::EventBuilder() : m_fields(std::make_shared<GatheredFields>()) {}

EventBuilder::~EventBuilder() = default;

void EventBuilder::AddText(ObjectId object, const TString& name, TextView text) {
    m_fields->Add(object, name, Literal::String(ToText(text)));
}

void EventBuilder::AddUuid(ObjectId object, const TString& name, const TUUID& id) {
    m_fields->Add(object, name, Literal::String(id.ToString(TUUIDFormatOption::UpperHyphenated)));
}

void EventBuilder::AddInt(ObjectId object, const TString& name, int64 value) {
    m_fields->Add(object, name, Literal::Int(value));
}

void EventBuilder::AddBool(ObjectId object, const TString& name, bool value) {
    m_fields->Add(object, name, Literal::Bool(value));
}

void EventBuilder::AddDouble(ObjectId object, const TString& name, double value) {
    m_fields->Add(object, name, Literal::Double(value, 0));
}

void EventBuilder::AddValue(ObjectId object, const TString& name, std::shared_ptr<Value> value) {
    m_fields->Add(object, name, std::move(value));
}

EventBuilder::ObjectId EventBuilder::AddObject(ObjectId object, const TString& name) {
    return m_fields->AddObject(object, name);
}

void EventBuilder::SetSession(TextView text) {
    m_fields->session = ToText(text);
}

void EventBuilder::SetRequest(TextView text) {
    m_fields->request = ToText(text);
}

void EventBuilder::SetFreshRequest() {
    m_fields->request = ActivityInfoFactory::CreateActivityInfo(0, u"-").GetRequestId();
}

void EventBuilder::SetUser(TextView text) {
    m_fields->user = ToText(text);
}

void EventBuilder::SetSite(TextView text) {
    m_fields->site = ToText(text);
}

Event EventBuilder::Finish(TString name, EventTimePoint time, uint32 processId, uint64 threadId) {
    m_fields->CloseObjects();
    return {std::move(name),
            m_fields->Take(ObjectId::Body),
            m_fields->Complete(ActivityInfo(time,
                                            processId,
                                            threadId,
                                            std::move(m_fields->session),
                                            std::move(m_fields->request),
                                            std::move(m_fields->user),
                                            std::move(m_fields->site),
                                            m_fields->Take(ObjectId::Environment),
                                            m_fields->Take(ObjectId::Activity),
                                            m_fields->Take(ObjectId::Attributes)))};
}

}  // namespace TLog
