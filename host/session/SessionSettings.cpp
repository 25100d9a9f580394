#include "SessionSettings.h"

#include "KeepText.h"
#include "SettingText.h"

#include <array>
#include <cstdlib>
#include <utility>

namespace tarn {
namespace {

/// What a value may be; null if it is well.
using Expectation = const char*;

template <class Value>
using Choice = std::pair<std::string_view, Value>;

template <class Value, std::size_t count>
bool Choose(std::string_view text,
            const std::array<Choice<Value>, count>& choices,
            std::optional<Value>& chosen) {
    for (const auto& [name, value] : choices) {
        if (text == name) {
            chosen = value;
            return true;
        }
    }
    return false;
}

constexpr std::array<Choice<bool>, 6> switches{
    {{"0", false}, {"off", false}, {"no", false}, {"1", true}, {"on", true}, {"yes", true}}};
constexpr std::array<Choice<bool>, 2> writings{{{"lines", false}, {"journal", true}}};
constexpr std::array<Choice<Delivery>, 3> deliveries{{{"sync", Delivery::Synchronous},
                                                      {"async", Delivery::Asynchronous},
                                                      {"refuse", Delivery::Refusing}}};
constexpr std::array<Choice<MemoryFigures>, 6> memories{
    {{"0", MemoryFigures::Off},
     {"off", MemoryFigures::Off},
     {"1", MemoryFigures::Allocations},
     {"allocations", MemoryFigures::Allocations},
     {"2", MemoryFigures::All},
     {"all", MemoryFigures::All}}};

Expectation SetLog(SessionSettings& settings, std::string_view value) {
    settings.log = value;
    return nullptr;
}

Expectation SetWriting(SessionSettings& settings, std::string_view value) {
    constexpr Expectation expectation = "lines or journal, bytes=64M, files=8, or several of them";
    std::optional<bool> journal;
    std::optional<uint64> bytes;
    std::optional<std::size_t> files;
    for (const std::string& part : Split(value)) {
        bool isUnderstood = false;
        if (const auto text = ValueOf(part, "bytes")) {
            bytes = ReadBytes(*text);
            isUnderstood = bytes.has_value();
        } else if (const auto number = ValueOf(part, "files")) {
            files = ReadNumber<std::size_t>(*number);
            isUnderstood = files.has_value();
        } else {
            isUnderstood = Choose(part, writings, journal);
        }
        if (!isUnderstood) {
            return expectation;
        }
    }
    if (!bytes && !files && !journal) {
        return expectation;
    }
    if (files && *files == 0) {
        return "files=1 or more";
    }
    settings.fileBytes = bytes ? bytes : settings.fileBytes;
    settings.keptFiles = files ? files : settings.keptFiles;
    settings.journal = journal ? journal : settings.journal;
    return nullptr;
}

Expectation SetDelivery(SessionSettings& settings, std::string_view value) {
    constexpr Expectation expectation = "sync, async or refuse, and perhaps ,queue=256K";
    std::optional<Delivery> delivery;
    std::optional<std::size_t> queueBytes;
    for (const std::string& part : Split(value)) {
        if (const auto text = ValueOf(part, "queue")) {
            queueBytes = ReadBytes(*text);
            if (!queueBytes) {
                return expectation;
            }
        } else if (!Choose(part, deliveries, delivery)) {
            return expectation;
        }
    }
    if (!delivery) {
        return expectation;
    }
    settings.delivery = delivery;
    settings.queueBytes = queueBytes;
    return nullptr;
}

Expectation SetOff(SessionSettings& settings, std::string_view value) {
    settings.off = Split(value);
    return nullptr;
}

Expectation SetRank(SessionSettings& settings, std::string_view value) {
    const std::optional<int32> rank = ReadNumber<int32>(value);
    settings.rank = rank ? rank : settings.rank;
    return rank ? nullptr : "a number";
}

Expectation SetCpu(SessionSettings& settings, std::string_view value) {
    return Choose(value, switches, settings.cpu) ? nullptr : "0 or 1";
}

Expectation SetMemory(SessionSettings& settings, std::string_view value) {
    return Choose(value, memories, settings.memory) ? nullptr : "0, 1 (allocations) or 2 (all)";
}

Expectation SetExtras(SessionSettings& settings, std::string_view value) {
    return Choose(value, switches, settings.extras) ? nullptr : "0 or 1";
}

Expectation SetCounters(SessionSettings& settings, std::string_view value) {
    if (const auto text = ValueOf(value, "names")) {
        const std::optional<std::size_t> names = ReadNumber<std::size_t>(*text);
        // Each name has its memory from the start.
        if (!names || *names > 10'000) {
            return "names=10000 or less";
        }
        settings.counters = true;
        settings.countedNames = names;
        return nullptr;
    }
    return Choose(value, switches, settings.counters) ? nullptr : "0, 1 or names=200";
}

Expectation SetKeep(SessionSettings& settings, std::string_view value) {
    const std::optional<KeepRules> rules = ReadKeepRules(value);
    settings.keep = rules ? rules : settings.keep;
    return rules ? nullptr : keepExpectation;
}

struct Setting {
    const char* variable;
    std::string_view name;
    Expectation (*set)(SessionSettings& settings, std::string_view value);
    bool mayBeEmpty;  ///< an empty value says something
};

constexpr std::array<Setting, 10> allSettings{{
    {"TARN_LOG", "log", SetLog, false},
    {"TARN_WRITING", "writing", SetWriting, false},
    {"TARN_DELIVERY", "delivery", SetDelivery, false},
    {"TARN_OFF", "off", SetOff, true},
    {"TARN_RANK", "rank", SetRank, false},
    {"TARN_CPU", "cpu", SetCpu, false},
    {"TARN_MEMORY", "memory", SetMemory, false},
    {"TARN_EXTRAS", "extras", SetExtras, false},
    {"TARN_COUNTERS", "counters", SetCounters, false},
    {"TARN_KEEP", "keep", SetKeep, false},
}};

void Set(const Setting& setting,
         std::string_view value,
         const std::string& place,
         SessionSettings& settings) {
    const std::string_view trimmed = Trim(value);
    if (trimmed.empty() && !setting.mayBeEmpty) {
        return;
    }
    if (const Expectation expected = setting.set(settings, trimmed)) {
        settings.errors.push_back(place + " \"" + std::string(trimmed) +
                                  "\" is ignored; it should be " + expected + ".");
    }
}

template <class Value>
void Take(const std::optional<Value>& given, Value& value) {
    if (given) {
        value = *given;
    }
}

}  // namespace

SessionSettings ReadEnvironment() {
    SessionSettings settings;
    for (const Setting& setting : allSettings) {
        if (const char* const value = secure_getenv(setting.variable)) {
            Set(setting, value, setting.variable, settings);
        }
    }
    return settings;
}

std::string FindConfigFile(const std::string& chosen, bool readEnvironment) {
    const char* const value = readEnvironment ? secure_getenv("TARN_CONFIG") : nullptr;
    return value != nullptr && *value != '\0' ? value : chosen;
}

SessionSettings ReadConfigText(std::string_view text, const std::string& path) {
    SessionSettings settings;
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        line = Trim(line);
        if (line.empty() || line.front() == '#') {
            continue;
        }
        const std::string place = path + ":" + std::to_string(number) + ":";
        const std::size_t sign = line.find('=');
        const std::string_view name = Trim(line.substr(0, sign));
        const Setting* known = nullptr;
        for (const Setting& setting : allSettings) {
            known = setting.name == name ? &setting : known;
        }
        if (sign == std::string_view::npos || known == nullptr) {
            settings.errors.push_back(place + " \"" + std::string(line) + "\" is ignored; " +
                                      (sign == std::string_view::npos
                                           ? "it should be a name, \"=\" and a value."
                                           : "there is no such setting."));
            continue;
        }
        Set(*known, line.substr(sign + 1), place + " " + std::string(name), settings);
    }
    return settings;
}

void Apply(const SessionSettings& settings, SessionOptions& options) {
    Take(settings.log, options.log);
    Take(settings.fileBytes, options.fileBytes);
    Take(settings.keptFiles, options.keptFiles);
    Take(settings.journal, options.journal);
    Take(settings.delivery, options.delivery);
    Take(settings.queueBytes, options.queueBytes);
    Take(settings.off, options.off);
    Take(settings.rank, options.rank);
    Take(settings.cpu, options.cpu);
    Take(settings.memory, options.memory);
    Take(settings.extras, options.extras);
    Take(settings.counters, options.counters);
    Take(settings.countedNames, options.countedNames);
    Take(settings.keep, options.keep);
}

}  // namespace tarn
