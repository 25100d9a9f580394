#include "read/Problems.h"

#include <ostream>

namespace tarnview {

namespace {

struct KindTexts {
    std::string_view word;
    std::string_view description;
    std::string_view plural;
};

constexpr std::array<KindTexts, problemKinds> kindTexts{{
    {"unreadable", "line that does not parse", "lines that do not parse"},
    {"long", "line that is too long", "lines that are too long"},
    {"cut", "line without an end", "lines without an end"},
    {"duplicate", "field that stands twice", "fields that stand twice"},
    {"wrong", "field that is missing or of a wrong kind", "fields missing or of a wrong kind"},
    {"no-begin", "end without a begin", "ends without a begin"},
    {"repeated", "id that repeats", "ids that repeat"},
    {"cycle", "sponsors in a circle", "circles of sponsors"},
    {"clock", "clock that went back", "times that the clock went back"},
    {"lost", "report of lost lines", "reports of lost lines"},
    {"figures", "activity whose figures do not add up", "activities whose figures do not add up"},
    {"never-ended", "activity that never ended", "activities that never ended"},
}};

// Control characters of a broken log must not reach a terminal.
std::string Printable(std::string_view text) {
    std::string result;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        result.push_back(byte < 0x20 || byte == 0x7F ? '.' : character);
    }
    return result;
}

}  // namespace

std::string_view DescriptionOf(ProblemKind kind) {
    return kindTexts[static_cast<std::size_t>(kind)].description;
}

std::string_view PluralOf(ProblemKind kind) {
    return kindTexts[static_cast<std::size_t>(kind)].plural;
}

std::string_view WordFor(ProblemKind kind) {
    return kindTexts[static_cast<std::size_t>(kind)].word;
}

Problems::Problems(std::ostream& out, std::size_t shownPerKind)
    : m_out(out),
      m_shownPerKind(shownPerKind) {}

void Problems::Report(ProblemKind kind, const Place& place, std::string_view detail) {
    if (IsIgnored(kind) || ++m_counts[Index(kind)] > m_shownPerKind) {
        return;
    }
    if (m_beforeOutput) {
        m_beforeOutput();
    }
    m_out << place.file;
    if (place.line != 0) {
        m_out << ':' << place.line;
    }
    m_out << ": " << DescriptionOf(kind);
    if (!detail.empty()) {
        m_out << ": " << Printable(detail);
    }
    m_out << '\n';
}

void Problems::Ignore(ProblemKind kind) {
    m_isIgnored[Index(kind)] = true;
}

std::uint64_t Problems::Total() const {
    std::uint64_t total = 0;
    for (const std::uint64_t count : m_counts) {
        total += count;
    }
    return total;
}

void Problems::PrintRest() const {
    for (std::size_t index = 0; index < problemKinds; ++index) {
        if (m_counts[index] > m_shownPerKind) {
            m_out << "in all " << m_counts[index] << ' ' << kindTexts[index].plural << '\n';
        }
    }
}

}  // namespace tarnview
