#include "span/SpanBuilder.h"

#include <cmath>
#include <cstdint>

namespace tarn::otlp {

namespace {

void AddText(Attributes& attributes,
             std::string_view prefix,
             std::string_view name,
             std::string_view text) {
    // "-" is the log's word for nothing.
    if (!text.empty() && text != "-") {
        attributes.push_back({prefix, name, {.text = text}});
    }
}

void AddInteger(Attributes& attributes,
                std::string_view prefix,
                std::string_view name,
                std::int64_t number) {
    attributes.push_back({prefix, name, {.kind = Value::Kind::Integer, .integer = number}});
}

// What the log has as a double for its size; nothing of the sort is near the ends of the range.
std::int64_t Whole(double number) {
    constexpr double most = 9.2e18;
    return number > -most && number < most ? std::llround(number) : 0;
}

bool BeginsWith(std::string_view text, std::string_view with) {
    return text.substr(0, with.size()) == with;
}

// Keys that other parts of a span may have.
bool IsTaken(std::string_view key) {
    return key == "thread.id" || key == "enduser.id" || BeginsWith(key, "tarn.") ||
           BeginsWith(key, "body.") || BeginsWith(key, "result.") || BeginsWith(key, "attributes.");
}

bool IsFailure(const ActivityFacts& activity) {
    return activity.result != "ok" && activity.result != "early-termination";
}

}  // namespace

const Span& SpanBuilder::Build(const ActivityFacts& activity,
                               const SpanIdentity& identity,
                               std::string_view callerNote) {
    m_texts.clear();
    m_span.attributes.clear();
    m_span.events.clear();
    m_span.links.clear();
    m_span.message = {};
    m_span.identity = identity;
    m_span.name = activity.name;
    m_span.kind = activity.kind;
    m_span.begin = activity.begin;
    m_span.end = activity.end;
    Read(activity.attributes, m_attributes);
    Read(activity.beginBody, m_beginBody);
    Read(activity.endBody, m_endBody);
    Read(activity.resultDetails, m_resultDetails);
    AddAttributes(activity, callerNote);
    AddSupplements(activity.end);
    SetStatus(activity);
    return m_span;
}

const Span& SpanBuilder::LinkSponsor(const SpanIdentity& sponsor) {
    SpanLink& link = m_span.links.emplace_back();
    link.trace = sponsor.trace;
    link.span = sponsor.span;
    AddText(link.attributes, {}, "tarn.link", "sponsor");
    return m_span;
}

void SpanBuilder::Read(std::string_view text, Table& table) {
    table.isFilled =
        text.size() > 2 &&
        table.parser.parse(text.data(), text.size(), true).get(table.members) == simdjson::SUCCESS;
}

void SpanBuilder::AddAttributes(const ActivityFacts& activity, std::string_view callerNote) {
    Attributes& attributes = m_span.attributes;
    AddText(attributes, {}, "tarn.id", activity.id);
    AddInteger(attributes, {}, "thread.id", activity.thread);
    if (activity.exclusive) {
        AddInteger(attributes, {}, "tarn.exclusive", *activity.exclusive);
    }
    AddText(attributes, {}, "tarn.result", activity.result);
    AddText(attributes, {}, "tarn.request", activity.request);
    AddText(attributes, {}, "tarn.session", activity.session);
    AddText(attributes, {}, "enduser.id", activity.user);
    AddText(attributes, {}, "tarn.site", activity.site);
    AddText(attributes, {}, "tarn.req-desc", activity.description);
    AddFigures(activity.figures);
    AddContextAttributes();
    // What was added while it ran replaces what it began with.
    AddTable("body.", m_beginBody, &m_endBody);
    AddTable("body.", m_endBody);
    AddTable("result.", m_resultDetails);
    AddText(attributes, {}, "tarn.caller", callerNote);
}

void SpanBuilder::AddFigures(const ResourceFigures& figures) {
    const auto add = [this](std::string_view name, double number) {
        AddInteger(m_span.attributes, {}, name, Whole(number));
    };
    if (figures.hasAllocated) {
        add("tarn.allocated.inclusive", figures.allocatedInclusive);
        add("tarn.allocated.exclusive", figures.allocatedExclusive);
    }
    if (figures.hasPeak) {
        add("tarn.allocated.peak", figures.peak);
    }
    if (figures.hasReleased) {
        add("tarn.released.inclusive", figures.releasedInclusive);
        add("tarn.released.exclusive", figures.releasedExclusive);
    }
    if (figures.hasThreads) {
        add("tarn.threads", figures.threads);
    }
    if (figures.hasCpu) {
        add("tarn.cpu.inclusive", figures.cpuInclusive);
        add("tarn.cpu.exclusive", figures.cpuExclusive);
    }
}

void SpanBuilder::AddContextAttributes() {
    if (m_attributes.isFilled) {
        for (const auto member : m_attributes.members) {
            AddValue(m_span.attributes,
                     IsTaken(member.key) ? "attributes." : "",
                     member.key,
                     member.value);
        }
    }
}

// Keys must not occur twice: members that `except` has as well are left out.
void SpanBuilder::AddTable(std::string_view prefix, const Table& table, const Table* except) {
    if (!table.isFilled) {
        return;
    }
    for (const auto member : table.members) {
        const bool isOther = except != nullptr && except->isFilled &&
                             except->members[member.key].error() == simdjson::SUCCESS;
        if (member.key != "logs" && !isOther) {
            AddValue(m_span.attributes, prefix, member.key, member.value);
        }
    }
}

void SpanBuilder::AddSupplements(Microseconds end) {
    simdjson::dom::array supplements;
    if (!m_endBody.isFilled || m_endBody.members["logs"].get(supplements) != simdjson::SUCCESS) {
        return;
    }
    for (const simdjson::dom::element supplement : supplements) {
        Members members;
        std::string_view time;
        if (supplement.get(members) != simdjson::SUCCESS) {
            continue;
        }
        const bool hasTime = members["begin"].get(time) == simdjson::SUCCESS;
        SpanEvent& event = m_span.events.emplace_back();
        event.time = ParseTimestamp(hasTime ? time : "").value_or(end);
        event.name = "supplement";
        for (const auto member : members) {
            if (member.key != "begin") {
                AddValue(event.attributes, {}, member.key, member.value);
            }
        }
    }
}

// What ended early is neither good nor failed.
void SpanBuilder::SetStatus(const ActivityFacts& activity) {
    m_span.status = StatusCode::Unset;
    if (!activity.hasEnd) {
        m_span.status = StatusCode::Error;
        m_span.message = "never ended";
    } else if (IsFailure(activity)) {
        m_span.status = StatusCode::Error;
        std::string_view message;
        if (m_resultDetails.isFilled &&
            m_resultDetails.members["msg"].get(message) == simdjson::SUCCESS) {
            m_span.message = message;
        }
    } else if (activity.result == "ok") {
        m_span.status = StatusCode::Ok;
    }
}

void SpanBuilder::AddValue(Attributes& attributes,
                           std::string_view prefix,
                           std::string_view name,
                           const simdjson::dom::element& value) {
    if (value.is_string()) {
        AddText(attributes, prefix, name, std::string_view(value));
    } else if (value.is_int64()) {
        AddInteger(attributes, prefix, name, std::int64_t(value));
    } else if (value.is_bool()) {
        attributes.push_back(
            {prefix, name, {.kind = Value::Kind::Boolean, .integer = bool(value) ? 1 : 0}});
    } else if (value.is_double()) {
        attributes.push_back({prefix, name, {.kind = Value::Kind::Double, .real = double(value)}});
    } else if (!value.is_null()) {
        m_texts.push_back(simdjson::minify(value));
        AddText(attributes, prefix, name, m_texts.back());
    }
}

}  // namespace tarn::otlp
