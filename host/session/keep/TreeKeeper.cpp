#include "TreeKeeper.h"

#include "cvlsys/THash32.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <utility>

namespace tarn {
namespace {

/// Judged trees are remembered, so that their late lines follow them: so many at least.
constexpr std::size_t leastRemembered = 1000;

/// No activity takes as long, and sums of it are far from the end of the numbers.
constexpr std::chrono::hours longest{24 * 366};

/// The same in every process.
bool IsInFraction(const std::string& root, double fraction) {
    constexpr double hashes = 4294967296.0;
    return static_cast<double>(THash32(root.data(), root.size(), 0)) < fraction * hashes;
}

double SecondsOf(std::chrono::microseconds duration) {
    return std::chrono::duration<double>(duration).count();
}

}  // namespace

bool HasConditions(const KeepRules& rules) noexcept {
    return rules.slow.count() > 0 || rules.failed || !rules.names.empty() || rules.fraction > 0 ||
           rules.sampled;
}

double LatenessOf(const KeepRules& rules) noexcept {
    const double waiting = SecondsOf(rules.waitingTime);
    return rules.slow.count() > 0 ? std::min(SecondsOf(rules.slow), waiting) : waiting;
}

void TreeKeeper::SetRules(const KeepRules& rules, Lines& toWrite) {
    m_names = std::set<std::string, std::less<>>(rules.names.begin(), rules.names.end());
    m_rules = rules;
    m_rules.slow = std::min<std::chrono::microseconds>(rules.slow, longest);
    m_rules.waitingTime = std::min<std::chrono::microseconds>(rules.waitingTime, longest);
    m_hasConditions = HasConditions(rules);
    if (!m_hasConditions) {
        while (!m_waiting.empty()) {
            Keep(*m_waiting.front(), toWrite);
        }
    }
}

void TreeKeeper::Take(const TLog::Event& line, Lines& toWrite) {
    if ((!m_hasConditions && m_trees.empty()) || !m_reader.Read(line, m_line)) {
        toWrite.push_back(line);
        return;
    }
    const bool isBegin = m_line.phase == LineFacts::Phase::Begin;
    if (!m_trees.contains(m_line.root) && (!isBegin || !m_hasConditions)) {
        // Of what had begun before there were rules, or in the process that this one was forked of.
        toWrite.push_back(line);
        return;
    }
    // Before the line, which is younger; but its own tree it may judge itself.
    KeepOverdue(m_line.root, toWrite);
    Tree& tree = FindOrBegin();
    if (isBegin) {
        ++tree.open;
    } else if (m_line.phase == LineFacts::Phase::End && tree.open > 0) {
        --tree.open;
    }
    switch (tree.state) {
        case State::Kept:
            toWrite.push_back(line);
            Settle(tree);
            break;
        case State::LeftOut:
            m_leftOut.CountLine(m_line);
            Settle(tree);
            break;
        case State::Waiting:
            tree.lines.push_back(line);
            tree.bytes += m_line.bytes;
            m_waitingBytes += m_line.bytes;
            Judge(tree, toWrite);
            break;
    }
    KeepOverdue({}, toWrite);
    KeepToLimits(toWrite);
}

void TreeKeeper::GiveUpWaiting(Lines& toWrite) {
    while (!m_waiting.empty()) {
        KeepUnjudged(*m_waiting.front(), toWrite);
    }
}

void TreeKeeper::ForgetWaiting() {
    while (!m_waiting.empty()) {
        Forget(*m_waiting.front());
    }
    m_leftOut = LeftOut();
}

/// Of the line. One that begins here is judged by it, and so is one that goes on after it was left
/// out, unless its root was here.
TreeKeeper::Tree& TreeKeeper::FindOrBegin() {
    const auto [known, isNew] = m_trees.try_emplace(m_line.root);
    Tree& tree = known->second;
    if (isNew) {
        tree.root = &known->first;
        try {
            m_waiting.push_back(&tree);
        } catch (...) {
            m_trees.erase(known);
            throw;
        }
        tree.places = &m_waiting;
        tree.place = std::prev(m_waiting.end());
        BeginJudging(tree);
    } else if (tree.state == State::LeftOut && tree.open == 0 &&
               m_line.phase == LineFacts::Phase::Begin && (m_line.IsRoot() || !tree.hasRoot)) {
        MoveTo(m_waiting, tree);
        BeginJudging(tree);
    }
    return tree;
}

void TreeKeeper::BeginJudging(Tree& tree) {
    tree.state = State::Waiting;
    tree.entry = m_line.id;
    tree.hasRoot = m_line.IsRoot();
    tree.since = m_line.time;
}

bool TreeKeeper::IsKeptAtBegin() const {
    return m_names.contains(m_line.name) || (m_rules.sampled && m_line.isSampled) ||
           (m_rules.fraction > 0 && IsInFraction(m_line.root, m_rules.fraction));
}

bool TreeKeeper::IsKeptAtEnd() const {
    return (m_rules.failed && m_line.isFailure) ||
           (m_rules.slow.count() > 0 && m_line.elapsed >= SecondsOf(m_rules.slow));
}

/// A waiting one, by the line.
void TreeKeeper::Judge(Tree& tree, Lines& toWrite) {
    if (m_line.id != tree.entry) {
        return;
    }
    if (m_line.phase == LineFacts::Phase::End) {
        // Rules that have come meanwhile have not seen its begin.
        if (IsKeptAtEnd() || IsKeptAtBegin()) {
            Keep(tree, toWrite);
        } else {
            Drop(tree);
        }
    } else if (IsKeptAtBegin()) {
        Keep(tree, toWrite);
    }
}

void TreeKeeper::Keep(Tree& tree, Lines& toWrite) {
    toWrite.insert(toWrite.end(),
                   std::make_move_iterator(tree.lines.begin()),
                   std::make_move_iterator(tree.lines.end()));
    tree.state = State::Kept;
    Settle(tree);
}

void TreeKeeper::Drop(Tree& tree) {
    m_leftOut.CountTree();
    for (const TLog::Event& line : tree.lines) {
        m_reader.Read(line, m_counted);
        m_leftOut.CountLine(m_counted);
    }
    tree.state = State::LeftOut;
    Settle(tree);
}

/// After a line of a judged tree. Those that nothing more is expected of are forgotten first.
void TreeKeeper::Settle(Tree& tree) {
    m_waitingBytes -= tree.bytes;
    tree.bytes = 0;
    tree.lines = Lines();
    MoveTo(tree.open > 0 ? m_open : m_closed, tree);
    const std::size_t remembered = std::max(m_rules.waitingTrees, leastRemembered);
    for (Places* const places : {&m_open, &m_closed}) {
        if (places->size() > remembered) {
            Forget(*places->front());
        }
    }
}

/// As the youngest there.
void TreeKeeper::MoveTo(Places& places, Tree& tree) {
    places.splice(places.end(), *tree.places, tree.place);
    tree.places = &places;
}

void TreeKeeper::Forget(Tree& tree) {
    m_waitingBytes -= tree.bytes;
    tree.places->erase(tree.place);
    m_trees.erase(m_trees.find(*tree.root));
}

/// By the time of the line: what is older than a slow tree is slow. As far as to the tree of that
/// root.
void TreeKeeper::KeepOverdue(std::string_view end, Lines& toWrite) {
    while (!m_waiting.empty()) {
        Tree& oldest = *m_waiting.front();
        const auto age = m_line.time - oldest.since;
        if (*oldest.root == end) {
            return;
        }
        if (m_rules.slow.count() > 0 && age >= m_rules.slow) {
            Keep(oldest, toWrite);
        } else if (age >= m_rules.waitingTime) {
            KeepUnjudged(oldest, toWrite);
        } else {
            return;
        }
    }
}

void TreeKeeper::KeepToLimits(Lines& toWrite) {
    while (!m_waiting.empty() &&
           (m_waitingBytes > m_rules.waitingBytes || m_waiting.size() > m_rules.waitingTrees)) {
        KeepUnjudged(*m_waiting.front(), toWrite);
    }
}

void TreeKeeper::KeepUnjudged(Tree& tree, Lines& toWrite) {
    m_leftOut.CountUnjudged();
    Keep(tree, toWrite);
}

}  // namespace tarn
