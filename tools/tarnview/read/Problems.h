#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace tarnview {

/// Where a line stands. The name of the file belongs to whoever reads it.
struct Place {
    std::string_view file;
    std::uint64_t line = 0;  ///< from 1 on; 0: the file as a whole

    bool operator==(const Place&) const = default;
};

/// What can be wrong with a log. The order is that of the summary.
enum class ProblemKind {
    UnreadableLine,
    LongLine,
    CutLine,
    DuplicateField,
    WrongField,
    EndWithoutBegin,
    RepeatedId,
    SponsorCycle,
    ClockJump,
    LostLines,
    Figures,
    NeverEnded,
};

inline constexpr std::size_t problemKinds = 12;

/// The kind in a few words ("line that does not parse"), and the word by which options name it.
std::string_view DescriptionOf(ProblemKind kind);
std::string_view PluralOf(ProblemKind kind);
std::string_view WordFor(ProblemKind kind);

/// Counts what is wrong with the input, and names the first cases of each kind in a stream, one a
/// line: "FILE:LINE: what it is: detail". Belongs to one run of a command, used by one thread; the
/// stream must live as long.
class Problems {
public:
    explicit Problems(std::ostream& out, std::size_t shownPerKind = 5);

    void Report(ProblemKind kind, const Place& place, std::string_view detail);

    /// Cases of such a kind are neither counted nor shown.
    void Ignore(ProblemKind kind);

    bool IsIgnored(ProblemKind kind) const { return m_isIgnored[Index(kind)]; }

    std::uint64_t Count(ProblemKind kind) const { return m_counts[Index(kind)]; }

    std::uint64_t Total() const;

    /// For each kind of which more cases were seen than shown, how many there are. Nothing if none.
    void PrintRest() const;

    /// Called before anything is shown, for instance to take a progress bar away.
    void SetBeforeOutput(std::function<void()> call) { m_beforeOutput = std::move(call); }

private:
    static std::size_t Index(ProblemKind kind) { return static_cast<std::size_t>(kind); }

    std::ostream& m_out;
    std::size_t m_shownPerKind;
    std::function<void()> m_beforeOutput;
    std::array<std::uint64_t, problemKinds> m_counts{};
    std::array<bool, problemKinds> m_isIgnored{};
};

}  // namespace tarnview
