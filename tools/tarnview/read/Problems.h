#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace tarnview {

/// The place of a line. The file's name is borrowed from its reader.
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
    BrokenFile,
    LostLines,
    MissingLines,
    DuplicateField,
    WrongField,
    EndWithoutBegin,
    RepeatedId,
    Orphan,
    SponsorCycle,
    ClockJump,
    DeadProcess,
    Crash,
    Figures,
    NeverEnded,
};

inline constexpr std::size_t problemKinds = 17;

/// The word by which options name the kind.
std::string_view WordFor(ProblemKind kind);

/// "1 line that does not parse", "3 lines that do not parse"
std::string CountOf(ProblemKind kind, std::uint64_t count);

/// Counts what is wrong with the input, and names the first cases of each kind in a stream, one a
/// line: "FILE:LINE: what it is: detail". Belongs to one run of a command, used by one thread; the
/// stream must live as long.
class Problems {
public:
    explicit Problems(std::ostream& out, std::size_t shownPerKind = 5);

    /// One case, which may stand for several lines: `amount` of them.
    void Report(ProblemKind kind,
                const Place& place,
                std::string_view detail,
                std::uint64_t amount = 1);

    /// Cases of such a kind are neither counted nor shown.
    void Ignore(ProblemKind kind);

    bool IsIgnored(ProblemKind kind) const { return m_isIgnored[Index(kind)]; }

    /// The amounts of all cases of this kind together.
    std::uint64_t Count(ProblemKind kind) const { return m_counts[Index(kind)]; }

    std::uint64_t Total() const;

    /// How much is wrong, as one line: "3 lines that do not parse, 1 end without a begin". Empty if
    /// nothing is.
    std::string Summary() const;

    /// Called before anything is shown, for instance to take a progress bar away.
    void SetBeforeOutput(std::function<void()> call) { m_beforeOutput = std::move(call); }

private:
    static std::size_t Index(ProblemKind kind) { return static_cast<std::size_t>(kind); }

    std::ostream& m_out;
    std::size_t m_shownPerKind;
    std::function<void()> m_beforeOutput;
    std::array<std::uint64_t, problemKinds> m_cases{};
    std::array<std::uint64_t, problemKinds> m_counts{};
    std::array<bool, problemKinds> m_isIgnored{};
};

}  // namespace tarnview
