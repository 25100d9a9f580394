#include "cvlcoreplatform/TLog.h"
#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlsys/TSystem.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace TLog;
using testing::ElementsAre;

// Keeps the order of the fields.
using Json = nlohmann::ordered_json;

// 2026-02-01 12:00:00.25 UTC
constexpr EventTimePoint noon(EventTimePoint::duration(17'699'472'002'500'000));

std::shared_ptr<Literal> Text(std::u16string text) {
    return Literal::String(TString(std::move(text)));
}

std::string LineOf(NameTable body) {
    return FormatJsonLine(Info, Event(u"e", Object::Make(std::move(body))), noon);
}

// The text of the single value of a body, as it is in the line.
std::string WrittenAs(std::shared_ptr<Value> value) {
    const std::string line = LineOf({{u"v", std::move(value)}});
    const std::string before = "\"body\":{\"v\":";
    const std::size_t start = line.find(before) + before.size();
    return line.substr(start, line.size() - 2 - start);
}

std::vector<std::string> NamesOf(const Json& object) {
    std::vector<std::string> names;
    for (const auto& [name, value] : object.items()) {
        names.push_back(name);
    }
    return names;
}

TEST(CorePlatformJsonLineTest, AnActivityEventHasAllFieldsInTheFixedOrder) {
    const Event event(u"begin-query",
                      Object::Make({{u"rows", Literal::Int(3)}}),
                      ActivityInfo(noon,
                                   4711,
                                   uint64{1} << 40,
                                   u"s-1",
                                   u"r-1",
                                   u"ann",
                                   u"hq",
                                   Object::Make({{u"host", Text(u"web1")}}),
                                   Object::Make({{u"id", Text(u"A")}, {u"depth", Literal::Int(0)}}),
                                   Object::Make({})));

    const std::string line = FormatJsonLine(Warn, event, EventTimePoint());

    EXPECT_EQ(line,
              R"({"time":"2026-02-01T12:00:00.250000Z","severity":"warn","event":"begin-query",)"
              R"("pid":4711,"tid":1099511627776,"session":"s-1","request":"r-1","user":"ann",)"
              R"("site":"hq","environment":{"host":"web1"},"activity":{"depth":0,"id":"A"},)"
              R"("attributes":{},"body":{"rows":3}})");
}

TEST(CorePlatformJsonLineTest, MissingObjectsAreLeftOut) {
    const Event event(
        u"e", nullptr, ActivityInfo(noon, 1, 2, u"", u"", u"", u"", nullptr, nullptr, nullptr));

    EXPECT_EQ(FormatJsonLine(Info, event, noon),
              R"({"time":"2026-02-01T12:00:00.250000Z","severity":"info","event":"e","pid":1,)"
              R"("tid":2,"session":"","request":"","user":"","site":""})");
}

TEST(CorePlatformJsonLineTest, AnEventOfNoActivityCarriesTheTimeAndThreadOfWriting) {
    const Json line = Json::parse(FormatJsonLine(Info, Event(u"e", Object::Make({})), noon));

    EXPECT_THAT(NamesOf(line), ElementsAre("time", "severity", "event", "pid", "tid", "body"));
    EXPECT_EQ(line["time"], "2026-02-01T12:00:00.250000Z");
    EXPECT_EQ(line["pid"], TSystem::ProcessID());
    EXPECT_EQ(line["tid"], TSystem::ThreadID());
    EXPECT_EQ(line["body"], Json::object());
}

TEST(CorePlatformJsonLineTest, AMessageHasATextInsteadOfAnEvent) {
    const Json line = Json::parse(FormatJsonLine(Error, TString(u"disk \"full\""), noon));

    EXPECT_THAT(NamesOf(line), ElementsAre("time", "severity", "message", "pid", "tid"));
    EXPECT_EQ(line["message"], "disk \"full\"");
    EXPECT_EQ(line["severity"], "error");
}

TEST(CorePlatformJsonLineTest, EverySeverityHasItsName) {
    const auto severity = [](int value) {
        const std::string line = FormatJsonLine(static_cast<Severity>(value), TString(), noon);
        return Json::parse(line)["severity"].get<std::string>();
    };

    EXPECT_EQ(severity(0), "trace");
    EXPECT_EQ(severity(1), "debug");
    EXPECT_EQ(severity(2), "info");
    EXPECT_EQ(severity(3), "warn");
    EXPECT_EQ(severity(4), "error");
    EXPECT_EQ(severity(5), "fatal");
    EXPECT_EQ(severity(6), "fatal");
}

TEST(CorePlatformJsonLineTest, TimesAreWrittenInUtcWithMicroseconds) {
    const auto time = [](int64 ticks) {
        const EventTimePoint now{EventTimePoint::duration(ticks)};
        return Json::parse(FormatJsonLine(Info, TString(), now))["time"].get<std::string>();
    };

    EXPECT_EQ(time(0), "1970-01-01T00:00:00.000000Z");
    EXPECT_EQ(time(19), "1970-01-01T00:00:00.000001Z");
    EXPECT_EQ(time(-1), "1969-12-31T23:59:59.999999Z");
    EXPECT_EQ(time(17'091'648'000'000'000), "2024-02-29T00:00:00.000000Z");
    EXPECT_EQ(time(2'534'023'007'999'999'999), "9999-12-31T23:59:59.999999Z");
    EXPECT_EQ(time(std::numeric_limits<int64>::min()), "0000-01-01T00:00:00.000000Z");
    EXPECT_EQ(time(std::numeric_limits<int64>::max()), "9999-12-31T23:59:59.999999Z");
}

TEST(CorePlatformJsonLineTest, FieldsOfATableAreSortedByTheCodeUnitsOfTheirNames) {
    const std::string line = LineOf({{u"b", Literal::Int(0)},
                                     {u"", Literal::Int(0)},
                                     {u"aaaab", Literal::Int(0)},
                                     {u"aaaaa", Literal::Int(0)},
                                     {u"aaaa", Literal::Int(0)},
                                     {u"B", Literal::Int(0)},
                                     {u"\uFF5E", Literal::Int(0)},
                                     {u"\U0001F600", Literal::Int(0)},
                                     {u"a", Literal::Int(0)}});

    EXPECT_THAT(
        NamesOf(Json::parse(line)["body"]),
        ElementsAre(
            "", "B", "a", "aaaa", "aaaaa", "aaaab", "b", "\xF0\x9F\x98\x80", "\xEF\xBD\x9E"));
}

TEST(CorePlatformJsonLineTest, NamesThatDifferInNulCharactersOnlyAreSortedToo) {
    const TString shorter(std::u16string_view(u"a\0", 2));
    const TString longer(std::u16string_view(u"a\0\0", 3));
    const NameTable table{
        {u"a", Literal::Int(1)}, {longer, Literal::Int(3)}, {shorter, Literal::Int(2)}};

    EXPECT_THAT(LineOf(table),
                testing::EndsWith(R"("body":{"a":1,"a\u0000":2,"a\u0000\u0000":3}})"));
}

TEST(CorePlatformJsonLineTest, RandomNamesAreSortedByTheirCodeUnits) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    // Few units, so that names share their beginnings; below and above the surrogates.
    const std::u16string units = u"\u0001aAz\u00E9\u0100\u0101\uABCD\uFF5E";

    for (int round = 0; round < 2000; ++round) {
        NameTable table;
        std::vector<TString> expected;
        for (std::size_t count = random() % 30; count != 0; --count) {
            std::u16string name(random() % 8, u'\0');
            for (char16_t& unit : name) {
                unit = units[random() % units.size()];
            }
            if (table.emplace(TString(name), Literal::Int(0)).second) {
                expected.emplace_back(name);
            }
        }
        std::sort(expected.begin(), expected.end());

        const std::string line = LineOf(table);

        std::vector<TString> names;
        for (const std::string& name : NamesOf(Json::parse(line)["body"])) {
            names.emplace_back(name);
        }
        ASSERT_EQ(names, expected) << line;
    }
}

TEST(CorePlatformJsonLineTest, TablesInsideTablesAreSortedInPlace) {
    const auto inner = Object::Make({{u"z", Literal::Int(1)}, {u"y", Literal::Int(2)}});

    EXPECT_THAT(LineOf({{u"c", inner}, {u"b", Literal::Int(3)}, {u"d", inner}}),
                testing::EndsWith(R"("body":{"b":3,"c":{"y":2,"z":1},"d":{"y":2,"z":1}}})"));
}

TEST(CorePlatformJsonLineTest, AMissingValueLeavesNoFieldAndKeepsItsPlaceInAnArray) {
    EXPECT_THAT(LineOf({{u"a", nullptr}, {u"b", Array::Make({nullptr, Literal::Int(1)})}}),
                testing::EndsWith(R"("body":{"b":[null,1]}})"));
}

TEST(CorePlatformJsonLineTest, WholeNumbersTruthsAndNull) {
    EXPECT_EQ(WrittenAs(Literal::Int(0)), "0");
    EXPECT_EQ(WrittenAs(Literal::Int(std::numeric_limits<int64>::min())), "-9223372036854775808");
    EXPECT_EQ(WrittenAs(Literal::Int(std::numeric_limits<int64>::max())), "9223372036854775807");
    EXPECT_EQ(WrittenAs(Literal::Bool(true)), "true");
    EXPECT_EQ(WrittenAs(Literal::Bool(false)), "false");
    EXPECT_EQ(WrittenAs(Literal::Null()), "null");
    EXPECT_EQ(WrittenAs(Array::Make({})), "[]");
    EXPECT_EQ(WrittenAs(Object::Make({})), "{}");
}

TEST(CorePlatformJsonLineTest, RealNumbersInGeneralNotationAreAsShortAsCanBe) {
    const auto written = [](double value) { return WrittenAs(Literal::Double(value, 0)); };

    EXPECT_EQ(written(0.1), "0.1");
    EXPECT_EQ(written(-0.25), "-0.25");
    EXPECT_EQ(written(1.0 / 3), "0.3333333333333333");
    EXPECT_EQ(written(1e300), "1e+300");
    EXPECT_EQ(written(5e-324), "5e-324");
    EXPECT_EQ(written(3.0), "3.0");
    EXPECT_EQ(written(0.0), "0.0");
    EXPECT_EQ(written(-0.0), "-0.0");
    EXPECT_EQ(written(1e15), "1e+15");
    EXPECT_EQ(written(123456789.0), "123456789.0");
}

TEST(CorePlatformJsonLineTest, RealNumbersInFixedNotationHaveNoExponent) {
    const auto written = [](double value) { return WrittenAs(Literal::Double(value, 1)); };

    EXPECT_EQ(written(0.137), "0.137");
    EXPECT_EQ(written(3.0), "3.0");
    EXPECT_EQ(written(1e22), "10000000000000000000000.0");
    EXPECT_EQ(written(1e-7), "0.0000001");
    EXPECT_EQ(written(std::numeric_limits<double>::max()).size(), 309u + 2u);
    EXPECT_EQ(written(-5e-324).size(), 2u + 324u + 1u);
}

TEST(CorePlatformJsonLineTest, WhatIsNotFiniteIsNull) {
    for (const int notation : {0, 1}) {
        EXPECT_EQ(WrittenAs(Literal::Double(std::nan(""), notation)), "null");
        EXPECT_EQ(WrittenAs(Literal::Double(std::numeric_limits<double>::infinity(), notation)),
                  "null");
        EXPECT_EQ(WrittenAs(Literal::Double(-std::numeric_limits<double>::infinity(), notation)),
                  "null");
    }
}

TEST(CorePlatformJsonLineTest, RandomRealNumbersReadBackAsTheSame) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937_64 random(seed);

    for (int round = 0; round < 20000; ++round) {
        const uint64 bits = random();
        double value = 0;
        std::memcpy(&value, &bits, sizeof value);
        if (!std::isfinite(value)) {
            continue;
        }

        const std::string general = WrittenAs(Literal::Double(value, 0));
        const std::string fixed = WrittenAs(Literal::Double(value, 1));

        ASSERT_EQ(std::strtod(general.c_str(), nullptr), value) << general;
        ASSERT_EQ(std::strtod(fixed.c_str(), nullptr), value) << fixed;
        ASSERT_EQ(fixed.find('e'), std::string::npos) << fixed;
        ASSERT_TRUE(Json::parse(general).is_number_float()) << general;
        ASSERT_TRUE(Json::parse(fixed).is_number_float()) << fixed;
    }
}

TEST(CorePlatformJsonLineTest, ControlCharactersThatJsonAllowsAreEscapedToo) {
    EXPECT_EQ(WrittenAs(Text(u"a\u007Fb")), R"("a\u007Fb")");
    EXPECT_EQ(WrittenAs(Text(u"\u0080\u009B31m\u009F")), R"("\u0080\u009B31m\u009F")");
    EXPECT_EQ(WrittenAs(Text(u"\u007E\u00A0\u00FF\u0100\u20AC\u027F")),
              "\"~\u00A0\u00FF\u0100\u20AC\u027F\"");
    EXPECT_EQ(NamesOf(Json::parse(LineOf({{u"n\u0085", Text(u"")}}))["body"]),
              std::vector<std::string>{"n\u0085"});
    EXPECT_EQ(LineOf({{u"n\u0085", Text(u"")}}).find('\x85'), std::string::npos);
}

TEST(CorePlatformJsonLineTest, YearsThatTheFormCannotSayAreCutToThoseItCan) {
    const auto timeOf = [](EventTimePoint now) {
        return Json::parse(FormatJsonLine(Info, TString(), now))["time"].get<std::string>();
    };
    const auto at = [](int year, int month, int day) {
        return EventTimePoint(
            std::chrono::sys_days(std::chrono::year{year} / month / day).time_since_epoch());
    };
    constexpr EventTimePoint::duration tick{1};

    EXPECT_EQ(timeOf(at(10'000, 1, 1) - tick), "9999-12-31T23:59:59.999999Z");
    EXPECT_EQ(timeOf(at(10'000, 1, 1)), "9999-12-31T23:59:59.999999Z");
    EXPECT_EQ(timeOf(EventTimePoint::max()), "9999-12-31T23:59:59.999999Z");
    EXPECT_EQ(timeOf(at(0, 1, 1)), "0000-01-01T00:00:00.000000Z");
    EXPECT_EQ(timeOf(at(0, 1, 1) - tick), "0000-01-01T00:00:00.000000Z");
    EXPECT_EQ(timeOf(EventTimePoint::min()), "0000-01-01T00:00:00.000000Z");
}

TEST(CorePlatformJsonLineTest, QuotesBackslashesAndControlCharactersAreEscaped) {
    EXPECT_EQ(WrittenAs(Text(u"say \"hi\" \\ /")), R"("say \"hi\" \\ /")");
    EXPECT_EQ(WrittenAs(Text(u"\b\f\n\r\t")), R"("\b\f\n\r\t")");
    EXPECT_EQ(WrittenAs(Text(std::u16string(u"a\0b", 3))), R"("a\u0000b")");
    EXPECT_EQ(WrittenAs(Text(u"\u001F\u007F")), R"("\u001F\u007F")");
    EXPECT_EQ(WrittenAs(Text(u"")), "\"\"");
}

TEST(CorePlatformJsonLineTest, EveryAsciiCharacterAtEveryPlaceReadsBack) {
    for (char16_t unit = 0; unit < 0x80; ++unit) {
        for (std::size_t place = 0; place < 20; ++place) {
            std::u16string text(20, u'x');
            text[place] = unit;
            const std::string expected(text.begin(), text.end());

            const std::string written = WrittenAs(Text(text));

            ASSERT_EQ(Json::parse(written).get<std::string>(), expected) << written;
            ASSERT_TRUE(std::none_of(written.begin(), written.end(), [](char c) {
                return static_cast<unsigned char>(c) < 0x20;
            })) << written;
        }
    }
}

TEST(CorePlatformJsonLineTest, ALoneSurrogateBecomesTheReplacementCharacter) {
    EXPECT_EQ(WrittenAs(Text({u'a', 0xD83D})), "\"a\xEF\xBF\xBD\"");
    EXPECT_EQ(WrittenAs(Text({0xDE00, u'a'})),
              "\"\xEF\xBF\xBD"
              "a\"");
    EXPECT_EQ(WrittenAs(Text({0xD83D, u'"'})), "\"\xEF\xBF\xBD\\\"\"");
    EXPECT_EQ(WrittenAs(Text(u"\U0001F600")), "\"\xF0\x9F\x98\x80\"");
}

TEST(CorePlatformJsonLineTest, OtherScriptsAreWrittenInUtf8) {
    const std::string line = LineOf({{u"gr\u00FC\u00DFe", Text(u"\u3053\u3093 \u20AC")}});

    EXPECT_THAT(line,
                testing::HasSubstr("\"gr\xC3\xBC\xC3\x9F"
                                   "e\":\"\xE3\x81\x93\xE3\x82\x93 "
                                   "\xE2\x82\xAC\""));
}

// A random text of all that texts can hold, and what must stand for it in UTF-8.
std::u16string RandomText(std::mt19937& random, std::size_t mostUnits) {
    std::u16string text;
    for (std::size_t length = random() % (mostUnits + 1); text.size() < length;) {
        switch (random() % 8) {
            case 0:
                text.push_back(static_cast<char16_t>(random() % 0x20));
                break;
            case 1:
                text.push_back(static_cast<char16_t>(random() % 2 == 0 ? u'"' : u'\\'));
                break;
            case 2:
                text.push_back(static_cast<char16_t>(0xD800 + random() % 0x800));
                break;
            case 3:
                text.push_back(static_cast<char16_t>(random()));
                break;
            default:
                text.push_back(static_cast<char16_t>(0x20 + random() % 0x5F));
        }
    }
    return text;
}

// Well-formed UTF-16 of the same length; the reader below does the way to UTF-8.
std::u16string WithoutLoneSurrogates(std::u16string text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isHigh = text[i] >= 0xD800 && text[i] < 0xDC00;
        const bool isLow = text[i] >= 0xDC00 && text[i] < 0xE000;
        if (isHigh && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000) {
            ++i;
        } else if (isHigh || isLow) {
            text[i] = 0xFFFD;
        }
    }
    return text;
}

TEST(CorePlatformJsonLineTest, RandomTextsAreReadBackByAnotherParser) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);

    for (int round = 0; round < 20000; ++round) {
        const std::u16string text = RandomText(random, 30);
        const std::u16string name = RandomText(random, 10);

        const std::string line = LineOf({{TString(name), Text(text)}});

        ASSERT_EQ(line.find('\n'), std::string::npos);
        const Json body = Json::parse(line)["body"];
        ASSERT_EQ(body.size(), 1u) << line;
        ASSERT_EQ(TString(body.begin().key()).View(), WithoutLoneSurrogates(name)) << line;
        ASSERT_EQ(TString(body.begin().value().get<std::string>()).View(),
                  WithoutLoneSurrogates(text))
            << line;
    }
}

std::shared_ptr<Value> RandomValue(std::mt19937& random, int depth, nlohmann::json& expected) {
    switch (random() % (depth > 0 ? 7 : 5)) {
        case 0: {
            const std::u16string text = WithoutLoneSurrogates(RandomText(random, 12));
            expected = TString(text).ToUtf8();
            return Text(text);
        }
        case 1: {
            const auto number = static_cast<int64>(uint64{random()} << (random() % 40));
            expected = number;
            return Literal::Int(number);
        }
        case 2: {
            const double number = static_cast<double>(random()) / 1000.0;
            expected = number;
            return Literal::Double(number, static_cast<int>(random() % 2));
        }
        case 3: {
            const bool truth = random() % 2 == 0;
            expected = truth;
            return Literal::Bool(truth);
        }
        case 4:
            expected = nullptr;
            return Literal::Null();
        case 5: {
            expected = nlohmann::json::array();
            std::vector<std::shared_ptr<Value>> items(random() % 4);
            for (std::shared_ptr<Value>& item : items) {
                expected.emplace_back();
                item = RandomValue(random, depth - 1, expected.back());
            }
            return Array::Make(std::move(items));
        }
        default: {
            expected = nlohmann::json::object();
            NameTable fields;
            for (std::size_t count = random() % 6; count != 0; --count) {
                const std::u16string name = WithoutLoneSurrogates(RandomText(random, 6));
                fields[TString(name)] =
                    RandomValue(random, depth - 1, expected[TString(name).ToUtf8()]);
            }
            return Object::Make(std::move(fields));
        }
    }
}

TEST(CorePlatformJsonLineTest, RandomTreesAreReadBackByAnotherParser) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);

    for (int round = 0; round < 5000; ++round) {
        nlohmann::json expected;
        const auto value = RandomValue(random, 4, expected);

        const std::string line = LineOf({{u"v", value}});

        ASSERT_EQ(nlohmann::json::parse(line)["body"]["v"], expected) << line;
    }
}

TEST(CorePlatformJsonLineTest, TheSameEventGivesTheSameLineAgain) {
    std::mt19937 random(1);
    for (int round = 0; round < 200; ++round) {
        nlohmann::json ignored;
        const Event event(u"e", Object::Make({{u"v", RandomValue(random, 3, ignored)}}));

        EXPECT_EQ(FormatJsonLine(Info, event, noon), FormatJsonLine(Info, event, noon));
    }
}

TEST(CorePlatformJsonLineTest, ValuesThatAreNestedTooDeepAreCutOff) {
    std::shared_ptr<Value> value = Literal::Int(1);
    for (int depth = 0; depth < 600; ++depth) {
        value = Array::Make({value});
    }

    const std::string line = LineOf({{u"v", value}});

    EXPECT_THAT(line, testing::HasSubstr("[[null]]"));
    EXPECT_TRUE(Json::accept(line));
    EXPECT_LT(line.size(), 1000u);
}

}  // namespace
