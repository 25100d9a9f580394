#include "Comparison.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace model {
namespace {

std::string Show(const std::string& text) {
    return text;
}

std::string Show(const std::u16string& text) {
    return Print(text);
}

template <class Number>
std::string Show(Number number) {
    return std::to_string(number);
}

// Differences travel as exceptions, so that the first one ends the comparison wherever it is.
[[noreturn]] void Differ(std::string path, std::string expected, std::string actual) {
    throw Difference{std::move(path), std::move(expected), std::move(actual)};
}

template <class T>
void CheckEqual(const T& expected, const T& actual, const std::string& path) {
    if (!(expected == actual)) {
        Differ(path, Show(expected), Show(actual));
    }
}

std::string ErrorTextOf(uint32 code) {
    char buffer[48];
    std::snprintf(
        buffer, sizeof buffer, "LogicException_LogicAssert_0x%08X", static_cast<unsigned>(code));
    return buffer;
}

const char* NameOf(Entry::Kind kind) {
    switch (kind) {
        case Entry::Kind::CounterCall:
            return "counter call";
        case Entry::Kind::Message:
            return "message";
        case Entry::Kind::DiagnosticEvent:
            return "diagnostic event";
        case Entry::Kind::ActivityEvent:
            return "activity event";
        case Entry::Kind::IdTaken:
            return "id taken";
    }
    return "?";
}

void CheckCounters(const Counters& expected, const Counters& actual, const std::string& path) {
    for (std::size_t i = 0; i < numberOfCounters; ++i) {
        CheckEqual(expected[i], actual[i], path + "[" + std::to_string(i) + "]");
    }
}

bool IsUpperCaseId(const std::u16string& text) {
    const std::u16string form = u"XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX";
    return text.size() == form.size() &&
           std::equal(text.begin(), text.end(), form.begin(), [](char16_t unit, char16_t place) {
               const bool isDigit =
                   (unit >= u'0' && unit <= u'9') || (unit >= u'A' && unit <= u'F');
               return place == u'-' ? unit == u'-' : isDigit;
           });
}

}  // namespace

std::optional<Difference> Comparison::FirstDifference(const Observation& expected,
                                                      const Observation& actual) {
    try {
        const std::size_t common = std::min(expected.journal.size(), actual.journal.size());
        for (std::size_t i = 0; i < common; ++i) {
            Check(expected.journal[i], actual.journal[i], "journal[" + std::to_string(i) + "]");
        }
        const auto entryAt = [common](const Observation& observation) {
            return common < observation.journal.size() ? Print(observation.journal[common])
                                                       : std::string("nothing more");
        };
        if (expected.journal.size() != actual.journal.size()) {
            Differ("journal[" + std::to_string(common) + "]", entryAt(expected), entryAt(actual));
        }
        Check(expected.raised, actual.raised);
        CheckCounters(expected.counters, actual.counters, "counters");
        CheckEqual(expected.openContexts, actual.openContexts, "openContexts");
        CheckEqual(expected.openScopes, actual.openScopes, "openScopes");
        CheckEqual(expected.openScopesOfContext.size(),
                   actual.openScopesOfContext.size(),
                   "openScopesOfContext.size");
        for (std::size_t i = 0; i < expected.openScopesOfContext.size(); ++i) {
            CheckEqual(expected.openScopesOfContext[i],
                       actual.openScopesOfContext[i],
                       "openScopesOfContext[" + std::to_string(i) + "]");
        }
    } catch (const Difference& difference) {
        return difference;
    }
    return std::nullopt;
}

void Comparison::Check(const Entry& expected, const Entry& actual, const std::string& path) {
    if (expected.kind != actual.kind) {
        Differ(path + ".kind",
               std::string(NameOf(expected.kind)) + ": " + Print(expected),
               std::string(NameOf(actual.kind)) + ": " + Print(actual));
    }
    CheckEqual(expected.severity, actual.severity, path + ".severity");
    CheckEqual(expected.counterName, actual.counterName, path + ".counterName");
    CheckEqual(expected.amount, actual.amount, path + ".amount");
    CheckCounters(expected.counters, actual.counters, path + ".counters");
    CheckEqual(expected.text, actual.text, path + ".text");
    Check(expected.body, actual.body, path + ".body");
    CheckEqual(expected.lineDifference, actual.lineDifference, path + ".line");
    if (expected.kind == Entry::Kind::ActivityEvent) {
        Check(expected.event, actual.event, path + ".event");
    }
}

void Comparison::Check(const LogEvent& expected, const LogEvent& actual, const std::string& path) {
    CheckEqual(expected.name, actual.name, path + ".name");
    CheckEqual(expected.time, actual.time, path + ".time");
    CheckEqual(expected.processId, actual.processId, path + ".pid");
    CheckEqual(expected.threadId, actual.threadId, path + ".tid");
    CheckEqual(expected.session, actual.session, path + ".session");
    if (expected.requestIsGenerated) {
        CheckGeneratedId(actual.request, path + ".request");
    } else {
        CheckEqual(expected.request, actual.request, path + ".request");
    }
    CheckEqual(expected.user, actual.user, path + ".user");
    CheckEqual(expected.site, actual.site, path + ".site");
    Check(expected.environment, actual.environment, path + ".environment");
    Check(expected.activity, actual.activity, path + ".activity");
    Check(expected.attributes, actual.attributes, path + ".attributes");
    Check(expected.body, actual.body, path + ".body");
}

void Comparison::CheckGeneratedId(const std::u16string& actual, const std::string& path) {
    if (!IsUpperCaseId(actual)) {
        Differ(path, "a generated id", Print(actual));
    }
    if (!m_generatedIds.insert(actual).second) {
        Differ(path, "a fresh id", Print(actual) + ", which was used before");
    }
}

void Comparison::Check(const Node& expected, const Node& actual, const std::string& path) {
    const auto differ = [&](const std::string& at) { Differ(at, Print(expected), Print(actual)); };
    if (expected.kind != actual.kind || expected.text != actual.text ||
        expected.integer != actual.integer || !(expected.real == actual.real)) {
        differ(path);
    }
    auto expectedField = expected.fields.begin();
    auto actualField = actual.fields.begin();
    while (expectedField != expected.fields.end() || actualField != actual.fields.end()) {
        if (actualField == actual.fields.end() ||
            (expectedField != expected.fields.end() && expectedField->name < actualField->name)) {
            Differ(path + "." + Print(expectedField->name), Print(expectedField->value), "nothing");
        }
        if (expectedField == expected.fields.end() || actualField->name < expectedField->name) {
            Differ(path + "." + Print(actualField->name), "nothing", Print(actualField->value));
        }
        Check(expectedField->value, actualField->value, path + "." + Print(actualField->name));
        ++expectedField;
        ++actualField;
    }
    if (expected.items.size() != actual.items.size()) {
        differ(path);
    }
    for (std::size_t i = 0; i < expected.items.size(); ++i) {
        Check(expected.items[i], actual.items[i], path + "[" + std::to_string(i) + "]");
    }
}

void Comparison::Check(const std::optional<Raised>& expected, const std::optional<Raised>& actual) {
    if (expected.has_value() != actual.has_value() ||
        (expected && expected->kind != actual->kind)) {
        Differ("raised", Print(expected), Print(actual));
    }
    if (!expected || expected->kind != Raised::Kind::Logic) {
        return;
    }
    CheckEqual(expected->text, actual->text, "raised.text");
    if (expected->line) {
        CheckEqual(expected->file, actual->file, "raised.file");
        CheckEqual(*expected->line, actual->line.value_or(-1), "raised.line");
    } else if (actual->file.rfind(expected->file, 0) != 0) {
        Differ("raised.file", expected->file + "...", actual->file);
    }
    const uint32 actualCode = actual->code.value_or(0);
    if (expected->code) {
        CheckEqual(*expected->code, actualCode, "raised.code");
    }
    CheckEqual(ErrorTextOf(actualCode), actual->errorText, "raised.errorText");
}

}  // namespace model
