#include "read/Problems.h"

#include "read/Printable.h"

#include <ostream>

namespace tarnview {

namespace {

struct KindTexts {
    std::string_view word;
    std::string_view description;  // of a case
    std::string_view one;          // of what is counted
    std::string_view many;
};

constexpr std::array<KindTexts, problemKinds> kindTexts{{
    {"unreadable",
     "line that does not parse",
     "line that does not parse",
     "lines that do not parse"},
    {"long", "line that is too long", "line that is too long", "lines that are too long"},
    {"cut", "line without an end", "line without an end", "lines without an end"},
    {"broken-file",
     "compressed file that is broken",
     "compressed file that is broken",
     "compressed files that are broken"},
    {"lost", "report of lost lines", "line that was lost", "lines that were lost"},
    {"gap",
     "gap in the numbers of lines",
     "line missing by its number",
     "lines missing by their numbers"},
    {"duplicate", "duplicate field", "duplicate field", "duplicate fields"},
    {"wrong",
     "field that is missing or of a wrong kind",
     "field missing or of a wrong kind",
     "fields missing or of a wrong kind"},
    {"no-begin", "end without a begin", "end without a begin", "ends without a begin"},
    {"repeated", "id that repeats", "id that repeats", "ids that repeat"},
    {"orphan",
     "activity whose sponsor is not in the log",
     "activity whose sponsor is not in the log",
     "activities whose sponsors are not in the log"},
    {"cycle", "sponsors in a circle", "circle of sponsors", "circles of sponsors"},
    {"clock",
     "clock that went back",
     "time that the clock went back",
     "times that the clock went back"},
    {"died",
     "process that was replaced in the middle of its work",
     "process that was replaced in the middle of its work",
     "processes that were replaced in the middle of their work"},
    {"crash", "process that crashed", "process that crashed", "processes that crashed"},
    {"figures",
     "activity whose figures do not add up",
     "activity whose figures do not add up",
     "activities whose figures do not add up"},
    {"never-ended",
     "activity that never ended",
     "activity that never ended",
     "activities that never ended"},
}};

}  // namespace

std::string_view WordFor(ProblemKind kind) {
    return kindTexts[static_cast<std::size_t>(kind)].word;
}

std::string CountOf(ProblemKind kind, std::uint64_t count) {
    const KindTexts& texts = kindTexts[static_cast<std::size_t>(kind)];
    return std::to_string(count).append(" ").append(count == 1 ? texts.one : texts.many);
}

Problems::Problems(std::ostream& out, std::size_t shownPerKind)
    : m_out(out),
      m_shownPerKind(shownPerKind) {}

void Problems::Report(ProblemKind kind,
                      const Place& place,
                      std::string_view detail,
                      std::uint64_t amount) {
    if (IsIgnored(kind)) {
        return;
    }
    m_counts[Index(kind)] += amount;
    if (++m_cases[Index(kind)] > m_shownPerKind) {
        return;
    }
    if (m_beforeOutput) {
        m_beforeOutput();
    }
    m_out << place.file;
    if (place.line != 0) {
        m_out << ':' << place.line;
    }
    m_out << ": " << kindTexts[Index(kind)].description;
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

std::string Problems::Summary() const {
    std::string summary;
    for (std::size_t index = 0; index < problemKinds; ++index) {
        if (m_counts[index] != 0) {
            summary.append(summary.empty() ? "" : ", ");
            summary.append(CountOf(static_cast<ProblemKind>(index), m_counts[index]));
        }
    }
    return summary;
}

}  // namespace tarnview
