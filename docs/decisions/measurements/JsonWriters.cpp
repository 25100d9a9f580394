// Which packaged library turns UTF-16 texts into a line of JSON, and at what price? One flat object
// of 12 fields, as in a log line, for each way of writing it. Every way is checked to read back as
// the same object. From the root of the project:
//
//   g++ -O2 -std=c++20 -Isrc/cpp/declarations -Ihost/cvlsys/include -Ihost/cvlcoreplatform/include
//   \
//       -Ihost/cvlcoreplatform -Ihost/cvlsys docs/decisions/measurements/JsonWriters.cpp \
//       host/cvlsys/*.cpp host/cvlcoreplatform/{JsonLine,TimeText,TLogEvent,TLogValue,TUUID}.cpp \
//       -lxxhash -lbenchmark -licuuc -o /tmp/json-writers && /tmp/json-writers
#include "JsonLine.h"

#include "cvlsys/TStringCore.h"
#include "cvlsys/host/Transcoding.h"

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <unicode/ustring.h>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

namespace {

using Fields = std::vector<std::pair<TStringCore, TStringCore>>;

const Fields& LineFields() {
    static const Fields fields{{u"event", u"end-query-catalogue"},
                               {u"session", u"8F2C1B0A-6F33-4B0C-9C55-0D2E7A61B8F4"},
                               {u"request", u"0A1B2C3D-0A1B-4C2D-8E3F-0A1B2C3D4E5F"},
                               {u"user", u"jane.doe"},
                               {u"site", u"hamburg"},
                               {u"host", u"server-17.example.com"},
                               {u"id", u"6E0E4F0B-2C57-4A11-8A0B-6A5F1B7C9D21"},
                               {u"root", u"6E0E4F0B-2C57-4A11-8A0B-6A5F1B7C9D22"},
                               {u"sponsor", u"6E0E4F0B-2C57-4A11-8A0B-6A5F1B7C9D23"},
                               {u"rk", u"ok"},
                               {u"table", u"orders"},
                               {u"title", u"Bestell\u00FCbersicht f\u00FCr Kunde 12 \u2014 offen"}};
    return fields;
}

class NlohmannWay {
public:
    std::string Line() {
        nlohmann::json object;
        for (const auto& [name, value] : LineFields()) {
            object[name.ToUtf8()] = value.ToUtf8();
        }
        return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }
};

// What the ways through RapidJSON have in common: one writer, whose buffer lives on.
template <class Writer, class Buffer = rapidjson::StringBuffer>
class RapidWay {
public:
    template <class WriteText>
    std::string Line(const WriteText& writeText) {
        m_out.Clear();
        m_writer.Reset(m_out);
        m_writer.StartObject();
        for (const auto& [name, value] : LineFields()) {
            writeText(m_writer, name);
            writeText(m_writer, value);
        }
        m_writer.EndObject();
        return std::string(m_out.GetString(), m_out.GetSize());
    }

private:
    Buffer m_out;
    Writer m_writer{m_out};
};

using Utf8Writer = rapidjson::Writer<rapidjson::StringBuffer>;

// Breaks off at a lone surrogate.
class RapidUtf16Way {
public:
    std::string Line() {
        return m_way.Line([](auto& writer, const TStringCore& text) {
            writer.String(text.Data(), static_cast<rapidjson::SizeType>(text.Length()));
        });
    }

private:
    RapidWay<rapidjson::Writer<rapidjson::StringBuffer, rapidjson::UTF16<char16_t>>> m_way;
};

class RapidBoostWay {
public:
    std::string Line() {
        return m_way.Line([this](auto& writer, const TStringCore& text) {
            m_utf8.clear();
            cvlsys::AppendUtf8(text.View(), m_utf8);
            writer.String(m_utf8.data(), static_cast<rapidjson::SizeType>(m_utf8.size()));
        });
    }

private:
    RapidWay<Utf8Writer> m_way;
    std::string m_utf8;
};

class RapidIcuWay {
public:
    std::string Line() {
        return m_way.Line([this](auto& writer, const TStringCore& text) {
            m_utf8.resize(3 * text.Length());
            int32_t length = 0;
            int32_t replaced = 0;
            UErrorCode error = U_ZERO_ERROR;
            u_strToUTF8WithSub(m_utf8.data(),
                               static_cast<int32_t>(m_utf8.size()),
                               &length,
                               text.Data(),
                               static_cast<int32_t>(text.Length()),
                               0xFFFD,
                               &replaced,
                               &error);
            writer.String(m_utf8.data(), static_cast<rapidjson::SizeType>(length));
        });
    }

private:
    RapidWay<Utf8Writer> m_way;
    std::string m_utf8;
};

// As the library does it: plain ASCII takes the short cut, the rest goes through both libraries.
class ShortCutWay {
public:
    std::string Line() {
        return m_way.Line([this](auto& writer, const TStringCore& text) {
            if (!writer.WritePlain(text.View())) {
                m_utf8.clear();
                cvlsys::AppendUtf8(text.View(), m_utf8);
                writer.String(m_utf8.data(), static_cast<rapidjson::SizeType>(m_utf8.size()));
            }
        });
    }

private:
    RapidWay<cvlcoreplatform::LineWriter, cvlcoreplatform::LineBuffer> m_way;
    std::string m_utf8;
};

// No library for JSON: one pass from UTF-16 to the quoted text.
class ByHandWay {
public:
    std::string Line() {
        m_out.assign(1, '{');
        for (const auto& [name, value] : LineFields()) {
            Quote(name.View());
            m_out += ':';
            Quote(value.View());
            m_out += ',';
        }
        m_out.back() = '}';
        return m_out;
    }

private:
    void Quote(std::u16string_view text) {
        m_out += '"';
        for (std::size_t i = 0; i < text.size(); ++i) {
            const char16_t unit = text[i];
            if (unit >= 0x20 && unit < 0x7F && unit != u'"' && unit != u'\\') {
                m_out += static_cast<char>(unit);
            } else if (unit >= 0x80) {
                cvlsys::AppendUtf8(text.substr(i, 1), m_out);
            } else {
                m_out += '\\';
                m_out += static_cast<char>(unit);
            }
        }
        m_out += '"';
    }

    std::string m_out;
};

template <class Way>
void WriteLine(benchmark::State& state) {
    Way way;
    nlohmann::json expected;
    for (const auto& [name, value] : LineFields()) {
        expected[name.ToUtf8()] = value.ToUtf8();
    }
    if (nlohmann::json::parse(way.Line(), nullptr, false) != expected) {
        state.SkipWithError("the line does not read back");
        return;
    }
    for ([[maybe_unused]] auto round : state) {
        benchmark::DoNotOptimize(way.Line());
    }
    state.counters["bytes"] = static_cast<double>(way.Line().size());
}

BENCHMARK(WriteLine<NlohmannWay>);
BENCHMARK(WriteLine<RapidUtf16Way>);
BENCHMARK(WriteLine<RapidIcuWay>);
BENCHMARK(WriteLine<RapidBoostWay>);
BENCHMARK(WriteLine<ShortCutWay>);
BENCHMARK(WriteLine<ByHandWay>);

}  // namespace

BENCHMARK_MAIN();
