// A host of one's own, middle layer: ids, formatting, and a logger that prints.
#include "cvlcoreplatform/ComputerName.h"
#include "cvlcoreplatform/CorePlatformOptions.h"
#include "cvlcoreplatform/TFormatString.h"
#include "cvlcoreplatform/TLog.h"
#include "cvlcoreplatform/TLogEventBuilder.h"
#include "cvlcoreplatform/TUUID.h"

#include <array>
#include <atomic>
#include <iostream>
#include <stdexcept>

namespace TSystem {

TString ComputerName() {
    return u"own-host";
}

}  // namespace TSystem

void CorePlatformOptions::SetIsTarnEnabledFunction(std::function<bool()> /*isTarnEnabled*/) {}

TFormatString::TFormatString(TString format) : m_format(std::move(format)) {}

TFormatString& TFormatString::Arg(const TString& text, int /*fieldWidth*/, char16_t /*fill*/) {
    m_arguments.push_back(text);
    return *this;
}

TString TFormatString::ToString() const {
    const std::u16string_view format = m_format.View();
    std::u16string text;
    for (std::size_t index = 0; index < format.size(); ++index) {
        const bool isPlaceholder = format[index] == u'%' && index + 1 < format.size() &&
                                   format[index + 1] >= u'1' && format[index + 1] <= u'9';
        const std::size_t argument =
            isPlaceholder ? static_cast<std::size_t>(format[index + 1] - u'1') : 0;
        if (isPlaceholder && argument < m_arguments.size()) {
            text += m_arguments[argument].View();
            ++index;
        } else {
            text += format[index];
        }
    }
    return TString(std::move(text));
}

TUUID::TUUID(const TString& text) {
    std::size_t digit = 0;
    for (const char16_t unit : text.View()) {
        const std::size_t value = std::u16string_view(u"0123456789ABCDEF").find(unit);
        if (value != std::u16string_view::npos && digit < 32) {
            m_bytes[digit / 2] = static_cast<unsigned char>(m_bytes[digit / 2] * 16 + value);
            ++digit;
        }
    }
    if (digit != 32) {
        throw std::invalid_argument("no id: " + text.ToUtf8());
    }
}

TUUID TUUID::CreateUUID() {
    // Numbered, so that the output is the same at every run; a real host makes random ones.
    static std::atomic<unsigned char> last{0};
    return TUUID(
        std::array<unsigned char, 16>{0, 0, 0, 0, 0, 0, 0x40, 0, 0x80, 0, 0, 0, 0, 0, 0, ++last});
}

TString TUUID::ToString(TUUIDFormatOption /*option*/) const {
    std::u16string text;
    for (std::size_t index = 0; index < m_bytes.size(); ++index) {
        if (index == 4 || index == 6 || index == 8 || index == 10) {
            text += u'-';
        }
        text += u"0123456789ABCDEF"[m_bytes[index] / 16];
        text += u"0123456789ABCDEF"[m_bytes[index] % 16];
    }
    return TString(std::move(text));
}

namespace TLog {

Value::~Value() = default;

Literal::Literal(Key, LiteralType type, int64 integer, double real, TString text) noexcept
    : Value(ValueKind::Literal),
      m_text(std::move(text)),
      m_integer(integer),
      m_double(real),
      m_type(type) {}

Literal::~Literal() = default;

std::shared_ptr<Literal> Literal::String(TString text) {
    return std::make_shared<Literal>(Key{}, LiteralType::String, 0, 0.0, std::move(text));
}

std::shared_ptr<Literal> Literal::Int(int64 value) {
    return std::make_shared<Literal>(Key{}, LiteralType::Integer, value, 0.0, TString());
}

std::shared_ptr<Literal> Literal::Bool(bool value) {
    return std::make_shared<Literal>(Key{}, LiteralType::Boolean, value ? 1 : 0, 0.0, TString());
}

std::shared_ptr<Literal> Literal::Double(double value, int notation) {
    const LiteralType type = notation == 1 ? LiteralType::FixedDouble : LiteralType::Double;
    return std::make_shared<Literal>(Key{}, type, 0, value, TString());
}

const std::shared_ptr<Literal>& Literal::Null() {
    static const auto null = std::make_shared<Literal>(Key{}, LiteralType::Null, 0, 0.0, TString());
    return null;
}

Object::Object(Key, NameTable fields) noexcept
    : Value(ValueKind::Object),
      m_fields(std::move(fields)) {}

Object::~Object() = default;

std::shared_ptr<Object> Object::Make(NameTable fields) {
    return std::make_shared<Object>(Key{}, std::move(fields));
}

Array::Array(Key, std::vector<std::shared_ptr<Value>> items) noexcept
    : Value(ValueKind::Array),
      m_items(std::move(items)) {}

Array::~Array() = default;

std::shared_ptr<Array> Array::Make(std::vector<std::shared_ptr<Value>> items) {
    return std::make_shared<Array>(Key{}, std::move(items));
}

struct ActivityInfo::Fields {
    EventTimePoint time;
    uint32 processId;
    uint64 threadId;
    TString sessionId;
    TString requestId;
    TString user;
    TString site;
    std::shared_ptr<Value> environment;
    std::shared_ptr<Value> activity;
    std::shared_ptr<Object> attributes;
};

ActivityInfo::ActivityInfo(EventTimePoint time,
                           uint32 processId,
                           uint64 threadId,
                           TString sessionId,
                           TString requestId,
                           TString user,
                           TString site,
                           std::shared_ptr<Value> environment,
                           std::shared_ptr<Value> activity,
                           std::shared_ptr<Object> attributes)
    : m_fields(std::make_shared<const Fields>(Fields{time,
                                                     processId,
                                                     threadId,
                                                     std::move(sessionId),
                                                     std::move(requestId),
                                                     std::move(user),
                                                     std::move(site),
                                                     std::move(environment),
                                                     std::move(activity),
                                                     std::move(attributes)})) {}

const TString& ActivityInfo::GetRequestId() const noexcept {
    return m_fields->requestId;
}

const TString& ActivityInfo::GetUser() const noexcept {
    return m_fields->user;
}

const std::shared_ptr<Value>& ActivityInfo::GetActivity() const noexcept {
    return m_fields->activity;
}

ActivityInfo ActivityInfoFactory::CreateActivityInfo(int64 /*time*/, const TString& /*requestId*/) {
    return {EventTimePoint(), 0, 0, u"-", TUUID::CreateUUID().ToString(), u"-", u"-", {}, {}, {}};
}

class EventFields {
public:
    TString name;
    std::shared_ptr<Object> body;
    std::unique_ptr<ActivityInfo> information;
};

Event::Event(TString name, std::shared_ptr<Object> body)
    : m_fields(std::make_shared<const EventFields>(
          EventFields{std::move(name), std::move(body), nullptr})) {}

Event::Event(TString name, std::shared_ptr<Object> body, ActivityInfo information)
    : m_fields(std::make_shared<const EventFields>(
          EventFields{std::move(name),
                      std::move(body),
                      std::make_unique<ActivityInfo>(std::move(information))})) {}

const TString& Event::GetName() const noexcept {
    return m_fields->name;
}

const ActivityInfo* Event::GetActivityInfo() const {
    return m_fields->information.get();
}

// This host has nothing to win by putting values off. A field's object is made at the end, when it
// is complete: those inside of others come after them.
class GatheredFields {
public:
    struct Child {
        std::size_t parent;
        TString name;
        std::size_t object;
    };

    std::vector<NameTable> objects = std::vector<NameTable>(4);
    std::vector<Child> children;
    TString session;
    TString request;
    TString user;
    TString site;
};

namespace {

TString ToText(TextView text) {
    return text.IsUtf8() ? TString::FromUtf8(text.GetUtf8()) : TString(text.GetUtf16());
}

}  // namespace

EventBuilder::EventBuilder() : m_fields(std::make_shared<GatheredFields>()) {}

EventBuilder::~EventBuilder() = default;

void EventBuilder::AddValue(ObjectId object, const TString& name, std::shared_ptr<Value> value) {
    m_fields->objects[static_cast<std::size_t>(object)].insert_or_assign(name, std::move(value));
}

void EventBuilder::AddText(ObjectId object, const TString& name, TextView text) {
    AddValue(object, name, Literal::String(ToText(text)));
}

void EventBuilder::AddUuid(ObjectId object, const TString& name, const TUUID& id) {
    AddText(object, name, id.ToString());
}

void EventBuilder::AddInt(ObjectId object, const TString& name, int64 value) {
    AddValue(object, name, Literal::Int(value));
}

void EventBuilder::AddBool(ObjectId object, const TString& name, bool value) {
    AddValue(object, name, Literal::Bool(value));
}

void EventBuilder::AddDouble(ObjectId object, const TString& name, double value) {
    AddValue(object, name, Literal::Double(value, 0));
}

EventBuilder::ObjectId EventBuilder::AddObject(ObjectId object, const TString& name) {
    const std::size_t child = m_fields->objects.size();
    m_fields->objects.emplace_back();
    m_fields->children.push_back({static_cast<std::size_t>(object), name, child});
    return static_cast<ObjectId>(child);
}

void EventBuilder::SetSession(TextView text) {
    m_fields->session = ToText(text);
}

void EventBuilder::SetRequest(TextView text) {
    m_fields->request = ToText(text);
}

void EventBuilder::SetFreshRequest() {
    m_fields->request = TUUID::CreateUUID().ToString();
}

void EventBuilder::SetUser(TextView text) {
    m_fields->user = ToText(text);
}

void EventBuilder::SetSite(TextView text) {
    m_fields->site = ToText(text);
}

Event EventBuilder::Finish(TString name, EventTimePoint time, uint32 processId, uint64 threadId) {
    std::vector<NameTable>& objects = m_fields->objects;
    for (auto child = m_fields->children.rbegin(); child != m_fields->children.rend(); ++child) {
        objects[child->parent].insert_or_assign(child->name,
                                                Object::Make(std::move(objects[child->object])));
    }
    const auto take = [&objects](ObjectId object) {
        return Object::Make(std::move(objects[static_cast<std::size_t>(object)]));
    };
    return {std::move(name),
            take(ObjectId::Body),
            ActivityInfo(time,
                         processId,
                         threadId,
                         m_fields->session,
                         m_fields->request,
                         m_fields->user,
                         m_fields->site,
                         take(ObjectId::Environment),
                         take(ObjectId::Activity),
                         take(ObjectId::Attributes))};
}

TString EventTimestamp::GetFormattedLocalValue() const {
    return u"now";
}

Logger& Logger::Get() noexcept {
    static Logger logger;
    return logger;
}

bool Logger::IsEnabled(Severity severity) const noexcept {
    return severity >= Info;
}

namespace {

std::string Describe(const Event& event) {
    std::string text = event.GetName().ToUtf8();
    if (const ActivityInfo* const information = event.GetActivityInfo()) {
        const auto& activity = static_cast<const Object&>(*information->GetActivity());
        for (const char16_t* const name : {u"id", u"sponsor"}) {
            const auto field = activity.GetFields().find(name);
            if (field != activity.GetFields().end()) {
                text += ' ' + TString(name).ToUtf8() + ' ' +
                        static_cast<const Literal&>(*field->second).GetString().ToUtf8();
            }
        }
    }
    return text;
}

}  // namespace

void Logger::Log(Severity severity, const Event& event) noexcept {
    if (IsEnabled(severity)) {
        std::cout << Describe(event) << '\n';
    }
}

void Logger::LogMessage(Severity severity, const TString& text) noexcept {
    if (IsEnabled(severity)) {
        std::cout << text.ToUtf8() << '\n';
    }
}

}  // namespace TLog
