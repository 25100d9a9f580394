#pragma once

#include "LeftOut.h"
#include "LineFacts.h"

#include "tarn/Session.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <functional>
#include <list>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tarn {

/// Without one all trees are kept.
bool HasConditions(const KeepRules& rules) noexcept;

/// How much later than its time a line may be written while others go on, in seconds.
double LatenessOf(const KeepRules& rules) noexcept;

/// Sorts the lines of activities into trees, by their root, and says which lines are to be written
/// and when. A tree is judged by its entry, the first of its activities that begins in this
/// process: the root, or the one that a request from another process begins with. Where the root is
/// elsewhere, the next request is judged anew once all that was open has ended. What comes after a
/// tree was judged follows it.
///
/// Used by one thread at a time. The lines that it hands out are to be written when a call has
/// returned, in order; it may be called again meanwhile.
class TreeKeeper {
public:
    using Lines = std::vector<TLog::Event>;

    /// Waiting trees are judged by the new rules; with none that has a condition they are written.
    void SetRules(const KeepRules& rules, Lines& toWrite);

    /// Adds to `toWrite` what is to be written now. Throws `std::bad_alloc`.
    void Take(const TLog::Event& line, Lines& toWrite);

    /// Adds all lines that wait: nobody can judge their trees any more.
    void GiveUpWaiting(Lines& toWrite);

    /// What waits is forgotten and not counted: it is another process's.
    void ForgetWaiting();

    const KeepRules& GetRules() const noexcept { return m_rules; }

    LeftOut& GetLeftOut() noexcept { return m_leftOut; }

    std::size_t CountWaitingTrees() const noexcept { return m_waiting.size(); }

    std::size_t CountWaitingBytes() const noexcept { return m_waitingBytes; }

    /// Of all trees that are known, judged ones included.
    std::size_t CountTrees() const noexcept { return m_trees.size(); }

private:
    enum class State { Waiting, Kept, LeftOut };

    struct Tree;
    using Places = std::list<Tree*>;

    struct Tree {
        State state = State::Waiting;
        std::string entry;  ///< the id of the activity that it is judged by
        bool hasRoot = false;
        uint64 open = 0;  ///< activities that have begun and not ended
        Lines lines;
        std::size_t bytes = 0;
        TLog::EventTimePoint since;
        const std::string* root = nullptr;  ///< its key
        Places* places = nullptr;           ///< one of the three lists
        Places::iterator place;
    };

    Tree& FindOrBegin();
    void BeginJudging(Tree& tree);
    bool IsKeptAtBegin() const;
    bool IsKeptAtEnd() const;
    void Judge(Tree& tree, Lines& toWrite);
    void Keep(Tree& tree, Lines& toWrite);
    void Drop(Tree& tree);
    void Settle(Tree& tree);
    void MoveTo(Places& places, Tree& tree);
    void Forget(Tree& tree);
    void KeepOverdue(std::string_view end, Lines& toWrite);
    void KeepToLimits(Lines& toWrite);
    void KeepUnjudged(Tree& tree, Lines& toWrite);

    KeepRules m_rules;
    std::set<std::string, std::less<>> m_names;
    bool m_hasConditions = false;

    std::unordered_map<std::string, Tree> m_trees;
    // Every tree is in one of them, the oldest first: by their beginnings, else by their last line.
    Places m_waiting;
    Places m_open;    ///< judged, with activities that have not ended
    Places m_closed;  ///< judged
    std::size_t m_waitingBytes = 0;

    LineReader m_reader;
    LineFacts m_line;     ///< that is being taken
    LineFacts m_counted;  ///< that is left out after it has waited
    LeftOut m_leftOut;
};

}  // namespace tarn
