#pragma once

#include "LogValue.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlsys/CorvalaException.h"
#include "cvlsys/IntegerTypes.h"

#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace TLog {

/// Lets failures show the event: its name, its information and its four tables.
void PrintTo(const Event& event, std::ostream* out);

}  // namespace TLog

namespace tarn::test {

/// The tables of an activity event, as a host's logger receives them.
enum class Table { Activity, Body, Attributes, Environment };

/// All fields of a table, by name; empty when the event has no such table.
std::map<std::string, LogValue> Fields(const TLog::Event& event, Table table);

/// Nothing when there is no such field.
std::optional<LogValue> Field(const TLog::Event& event, Table table, const std::string& name);

using EventMatcher = testing::Matcher<const TLog::Event&>;

/// An event of this name in the phase that goes with it: `Begins("query")`.
EventMatcher Begins(const std::string& scopeName);
EventMatcher Ends(const std::string& scopeName);

EventMatcher HasActivityField(const std::string& name, const LogValue& value);
EventMatcher HasBodyField(const std::string& name, const LogValue& value);
EventMatcher HasAttribute(const std::string& name, const LogValue& value);
EventMatcher HasEnvironmentField(const std::string& name, const LogValue& value);

EventMatcher LacksActivityField(const std::string& name);
EventMatcher LacksBodyField(const std::string& name);
EventMatcher LacksAttribute(const std::string& name);
EventMatcher LacksEnvironmentField(const std::string& name);

/// Exactly these names, in any order.
EventMatcher HasExactlyActivityFields(const std::vector<std::string>& names);
EventMatcher HasExactlyBodyFields(const std::vector<std::string>& names);
EventMatcher HasExactlyAttributes(const std::vector<std::string>& names);
EventMatcher HasExactlyEnvironmentFields(const std::vector<std::string>& names);

/// The other arguments of the event's information.
EventMatcher HappensAt(int64 ticks);
EventMatcher HasProcessId(uint32 id);
EventMatcher HasThreadId(uint64 id);
EventMatcher HasSession(const std::string& session);
EventMatcher HasRequest(const std::string& request);
EventMatcher HasUser(const std::string& user);
EventMatcher HasSite(const std::string& site);

/// A logic error of this place, asserted text and code, whose own text repeats the code:
/// `EXPECT_THAT(action, Throws<LogicException>(IsLogicError(...)))`.
testing::Matcher<const LogicException&> IsLogicError(const std::string& file,
                                                     int line,
                                                     const std::string& text,
                                                     uint32 code);

}  // namespace tarn::test
