#include "read/LineParser.h"

#include "read/LineFields.h"

#include <cstring>
#include <utility>

namespace tarnview {

namespace {

using simdjson::SUCCESS;

// `raw` points behind the opening quote of a key, into padded text.
bool IsKey(const char* raw, std::string_view key) {
    return memcmp(raw, key.data(), key.size()) == 0 && raw[key.size()] == '"';
}

// The number of a key; N if it is not known. The search begins where the last one ended.
template <class Field, std::size_t N>
std::size_t FindKey(const char* raw, const Field (&known)[N], std::size_t next) {
    for (std::size_t count = 0; count < N; ++count) {
        const std::size_t index = next + count < N ? next + count : next + count - N;
        if (IsKey(raw, known[index].key)) {
            return index;
        }
    }
    return N;
}

}  // namespace

template <class Field, std::size_t N, class Read>
bool LineParser::ForEachField(Object& object, const Field (&known)[N], const Read& read) {
    std::size_t next = 0;
    std::uint32_t seen = 0;
    for (auto result : object) {
        simdjson::ondemand::field field;
        if (std::move(result).get(field) != SUCCESS) {
            return false;
        }
        const std::size_t index = FindKey(field.key().raw(), known, next);
        if (index == N) {
            continue;
        }
        next = index + 1 < N ? index + 1 : 0;
        if ((seen >> index & 1U) != 0) {
            NoteDuplicate(known[index].key);
            continue;
        }
        seen |= 1U << index;
        if (!read(known[index], field.value())) {
            return false;
        }
    }
    return true;
}

LineParser::Result LineParser::Parse(std::string_view text, LogLine& line) {
    m_ownTexts.release();
    return Parse(text, line, m_ownTexts);
}

LineParser::Result LineParser::Parse(std::string_view text,
                                     LogLine& line,
                                     std::pmr::memory_resource& unescaped) {
    line = LogLine();
    line.process.host = m_options.host;
    m_unescaped = &unescaped;
    m_detail.clear();
    m_hasDuplicate = m_hasWrongKind = m_hasActivity = false;
    if (m_options.isStrict && !IsValid(text)) {
        return Result::Unreadable;
    }
    simdjson::ondemand::document document;
    Object object;
    const simdjson::padded_string_view padded(
        text.data(), text.size(), text.size() + simdjson::SIMDJSON_PADDING);
    if (const auto error = m_parser.iterate(padded).get(document)) {
        return Fail(simdjson::error_message(error));
    }
    if (const auto error = document.get_object().get(object)) {
        return Fail(simdjson::error_message(error));
    }
    const bool isRead = ForEachField(object, lineFields, [&](const LineField& field, Value& value) {
        return ReadField(field, value, line);
    });
    if (!isRead) {
        return Fail("broken JSON");
    }
    if (document.current_location().error() != simdjson::OUT_OF_BOUNDS) {
        return Fail("more than one JSON object");
    }
    if (!m_hasActivity) {
        line.kind = line.event.empty() ? LineKind::Message : LineKind::Diagnostic;
        if (line.event.empty() && line.message.data() == nullptr) {
            return Fail("neither an event nor a message");
        }
    } else if (line.root.empty()) {
        line.root = line.id;
    }
    return m_hasDuplicate || m_hasWrongKind ? Result::Flawed : Result::Good;
}

LineParser::Result LineParser::Fail(std::string_view detail) {
    m_detail = detail;
    return Result::Unreadable;
}

bool LineParser::IsValid(std::string_view text) {
    const auto error = m_strictParser.parse(text.data(), text.size(), false).error();
    if (error != SUCCESS) {
        m_detail = simdjson::error_message(error);
    }
    return error == SUCCESS;
}

void LineParser::NoteDuplicate(std::string_view name) {
    m_hasDuplicate = true;
    m_detail = name;
}

void LineParser::NoteWrongKind(std::string_view name) {
    m_hasWrongKind = true;
    if (!m_hasDuplicate) {
        m_detail = name;
    }
}

template <class Field>
bool LineParser::ReadField(const Field& field, Value& value, LogLine& line) {
    switch (field.kind) {
        case FieldKind::Text:
            return ReadText(field.key, value, line.*field.text);
        case FieldKind::Integer:
            return ReadNumber(field.key, value, line.*field.integer);
        case FieldKind::Real:
            return ReadNumber(field.key, value, line.*field.real);
        case FieldKind::Table:
            return ReadTable(field.key, value, line.*field.text);
        case FieldKind::Time:
            return ReadTime(value, line);
        case FieldKind::Activity:
            return ReadActivity(value, line);
        case FieldKind::Resources:
            return ReadResources(value, line.figures);
        case FieldKind::Phase:
            return ReadPhase(value, line);
        case FieldKind::Process:
            return ReadNumber(field.key, value, line.process.number);
    }
    return false;
}

bool LineParser::ReadActivity(Value& value, LogLine& line) {
    Object object;
    if (value.get_object().get(object) != SUCCESS) {
        NoteWrongKind("activity");
        return true;
    }
    m_hasActivity = true;
    return ForEachField(object, activityFields, [&](const LineField& field, Value& fieldValue) {
        return ReadField(field, fieldValue, line);
    });
}

bool LineParser::ReadResources(Value& value, Figures& figures) {
    Object groups;
    if (value.get_object().get(groups) != SUCCESS) {
        NoteWrongKind("res");
        return true;
    }
    return ForEachField(groups, groupFields, [&](const GroupField& field, Value& group) {
        figures.*field.isMeasured = true;
        return field.key == "ntid" ? ReadNumber(field.key, group, figures.threads)
                                   : ReadGroup(group, figures);
    });
}

bool LineParser::ReadGroup(Value& value, Figures& figures) {
    Object object;
    if (value.get_object().get(object) != SUCCESS) {
        NoteWrongKind("res");
        return true;
    }
    return ForEachField(object, figureFields, [&](const FigureField& field, Value& figure) {
        figures.hasPeak = figures.hasPeak || field.figure == &Figures::apeak;
        return ReadNumber(field.key, figure, figures.*field.figure);
    });
}

bool LineParser::ReadTime(Value& value, LogLine& line) {
    std::string_view text;
    if (!ReadText("time", value, text)) {
        return false;
    }
    const auto time = ParseTimestamp(text);
    if (!time) {
        NoteWrongKind("time");
    }
    line.time = time.value_or(0);
    return true;
}

bool LineParser::ReadPhase(Value& value, LogLine& line) {
    std::string_view phase;
    if (!ReadText("type", value, phase)) {
        return false;
    }
    if (phase != "begin" && phase != "end") {
        NoteWrongKind("type");
        m_hasActivity = false;
    }
    line.kind = phase == "end" ? LineKind::End : LineKind::Begin;
    return true;
}

bool LineParser::ReadText(std::string_view key, Value& value, std::string_view& text) {
    // Up to the next field: the closing quote is the last one.
    const std::string_view token = value.raw_json_token();
    simdjson::ondemand::raw_json_string raw;
    const auto error = value.get_raw_json_string().get(raw);
    if (error == simdjson::INCORRECT_TYPE) {
        NoteWrongKind(key);
    }
    if (error != SUCCESS) {
        return error == simdjson::INCORRECT_TYPE;
    }
    const std::string_view quoted = token.substr(1, token.rfind('"') - 1);
    if (quoted.find('\\') == std::string_view::npos) {
        text = quoted;
        return true;
    }
    // Never longer than it is with its escapes; simdjson writes in blocks.
    const std::size_t room = quoted.size() + simdjson::SIMDJSON_PADDING;
    auto* end = static_cast<std::uint8_t*>(m_unescaped->allocate(room, 1));
    return m_parser.unescape(raw, end).get(text) == SUCCESS;
}

bool LineParser::ReadTable(std::string_view key, Value& value, std::string_view& table) {
    if (!m_options.wantsTables) {
        return true;
    }
    Object object;
    if (value.get_object().get(object) != SUCCESS) {
        NoteWrongKind(key);
        return true;
    }
    return object.raw_json().get(table) == SUCCESS;
}

template <class Number>
bool LineParser::ReadNumber(std::string_view key, Value& value, Number& number) {
    if (value.get(number) == SUCCESS) {
        return true;
    }
    number = 0;
    NoteWrongKind(key);
    return true;
}

}  // namespace tarnview
