#pragma once

#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/IntegerTypes.h"

#include <iosfwd>

#include <gmock/gmock.h>

// Events of the bus as a test expects them. Values are compared as values, never as text that was
// made of them:
//
//     EXPECT_THAT(listener->Contents(), ElementsAre(Opens("load", {{"rows", 7}}), Closes("load")));

namespace Metrics {

/// Of one kind, and the same: 7 is not 7.0, and a narrow text is not a wide one. Texts are compared
/// unit for unit and real numbers bit for bit, so that 0.0 is not -0.0. Of a kind that is not known
/// only the kind counts.
bool operator==(const MetricsValue& a, const MetricsValue& b);

/// For failures: 7, true, 1.5, "narrow", L"wide". What is not printable is escaped.
void PrintTo(const MetricsValue& value, std::ostream* out);

}  // namespace Metrics

namespace tarn::test {

/// What an event says: its kind and what it carries. Its ids, flags and times are left out.
struct EventContent {
    Metrics::MetricsEventType type{0};
    Metrics::MetricsValue name;
    Metrics::MetricsValue value;
    Metrics::NameValueList pairs;

    friend bool operator==(const EventContent& a, const EventContent& b) {
        return a.type == b.type && a.name == b.name && a.value == b.value && a.pairs == b.pairs;
    }

    /// OpenScope "load" {"path"="/tmp"}
    friend void PrintTo(const EventContent& content, std::ostream* out);
};

EventContent ContentOf(const Metrics::MetricsEvent& event);

/// The events of a context, which carry nothing.
EventContent CreatesContext();
EventContent OpensContext();
EventContent ClosesContext();

EventContent Opens(const Metrics::MetricsValue& scopeName,
                   const Metrics::NameValueList& pairs = {});
EventContent Closes(const Metrics::MetricsValue& scopeName);
EventContent PostCloses(const Metrics::MetricsValue& scopeName,
                        const Metrics::MetricsValue& action = 0);

/// What a scope sends: one value, a named list, a supplement.
EventContent SendsValue(const Metrics::MetricsValue& name, const Metrics::MetricsValue& value);
EventContent SendsPairs(const Metrics::MetricsValue& listName, const Metrics::NameValueList& pairs);
EventContent SendsSupplement(const Metrics::MetricsValue& listName,
                             const Metrics::NameValueList& pairs);

/// The same for a context.
EventContent SendsContextValue(const Metrics::MetricsValue& name,
                               const Metrics::MetricsValue& value);
EventContent SendsContextPairs(const Metrics::MetricsValue& listName,
                               const Metrics::NameValueList& pairs);

/// What the bus says for a context that is on another thread than before.
EventContent AnnouncesThread(uint64 threadId);

/// Any event of this kind.
testing::Matcher<const EventContent&> IsOfType(Metrics::MetricsEventType type);

/// The pairs of both, in order.
Metrics::NameValueList Joined(Metrics::NameValueList first, const Metrics::NameValueList& second);

/// Whether an event opens or closes a scope of this narrow name.
bool IsOpeningOf(const Metrics::MetricsEvent& event, const char* scopeName);
bool IsClosingOf(const Metrics::MetricsEvent& event, const char* scopeName);

}  // namespace tarn::test
