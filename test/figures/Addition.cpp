#include "Addition.h"

#include <algorithm>
#include <map>
#include <set>
#include <vector>

namespace figures {
namespace {

std::string Name(int scope) {
    return "s" + std::to_string(scope);
}

std::string Differ(const std::string& what, int64 logged, int64 expected) {
    return what + ": the log says " + std::to_string(logged) + ", expected " +
           std::to_string(expected);
}

/// A sum, and what each exception adds to it.
struct Sum {
    int64 logged = 0;
    int64 root = 0;
    std::array<int64, exceptionCount> exceptions{};
    std::array<bool, exceptionCount> met{};

    void Meet(Exception exception, int64 amount) {
        exceptions[exception] += amount;
        met[exception] = true;
    }

    bool HasException() const { return std::find(met.begin(), met.end(), true) != met.end(); }

    std::optional<std::string> Fault(const std::string& what) const {
        int64 expected = root;
        std::string terms = std::to_string(root);
        for (std::size_t i = 0; i < exceptionCount; ++i) {
            expected += exceptions[i];
            if (met[i]) {
                terms += " + " + std::to_string(exceptions[i]) + " (" + exceptionNames[i] + ")";
            }
        }
        if (logged == expected) {
            return std::nullopt;
        }
        return what + ": the exclusive figures add up to " + std::to_string(logged) +
               ", expected " + terms;
    }
};

class Check {
public:
    Check(const Expectation& expectation, const LoggedScopes& log, Sightings& sightings)
        : m_expectation(expectation),
          m_log(log),
          m_sightings(sightings) {}

    std::optional<std::string> Run(bool comparesScopes) {
        if (!m_log.problem.empty()) {
            return m_log.problem;
        }
        m_comparesScopes = comparesScopes;
        for (int i = 0; comparesScopes && i < Count(); ++i) {
            if (auto fault = CompareScope(i)) {
                return Name(i) + " " + *fault;
            }
        }
        if (auto fault = GatherTrees()) {
            return fault;
        }
        for (const auto& [root, members] : m_trees) {
            const std::string tree = root >= 0 ? "tree of " + Name(root) : "scopes without a root";
            if (auto fault = AddUp(root, members)) {
                return tree + ", " + *fault;
            }
        }
        return std::nullopt;
    }

private:
    int Count() const { return static_cast<int>(m_expectation.scopes.size()); }

    const ExpectedScope& Expected(int scope) const {
        return m_expectation.scopes[static_cast<std::size_t>(scope)];
    }

    const LoggedScope& Logged(int scope) const {
        return m_log.scopes[static_cast<std::size_t>(scope)];
    }

    bool HasEnd(int scope) const { return Expected(scope).isLogged && Expected(scope).isClosed; }

    std::optional<std::string> CompareScope(int index) {
        const ExpectedScope& expected = Expected(index);
        const LoggedScope& logged = Logged(index);
        const bool isRequest = expected.kind.form == ScopeForm::Request;
        if (!isRequest && logged.begins != (expected.isLogged ? 1 : 0)) {
            return Differ("begin events", logged.begins, expected.isLogged ? 1 : 0);
        }
        if (logged.ends != (HasEnd(index) ? 1 : 0)) {
            return Differ("end events", logged.ends, HasEnd(index) ? 1 : 0);
        }
        if (!HasEnd(index)) {
            return std::nullopt;
        }
        if (logged.elapsed != expected.account.elapsed ||
            logged.exclusiveTime != expected.account.exclusiveTime ||
            Milliseconds(logged.elapsed) != expected.elapsedMs ||
            Milliseconds(logged.exclusiveTime) != expected.ExclusiveMs()) {
            return "times: the log says " + std::to_string(logged.elapsed) + " and " +
                   std::to_string(logged.exclusiveTime) + ", expected " +
                   std::to_string(expected.elapsedMs) + " ms and " +
                   std::to_string(expected.ExclusiveMs()) + " ms";
        }
        for (std::size_t i = 0; i < figureCount; ++i) {
            const auto figure = static_cast<Figure>(i);
            if (logged.inclusive[i] != expected.Inclusive(figure)) {
                return Differ(std::string("inclusive ") + figureNames[i],
                              logged.inclusive[i],
                              expected.Inclusive(figure));
            }
            if (logged.exclusive[i] != expected.Exclusive(figure)) {
                return Differ(std::string("exclusive ") + figureNames[i],
                              logged.exclusive[i],
                              expected.Exclusive(figure));
            }
            m_sightings.negativeFigures += logged.exclusive[i] < 0 ? 1U : 0U;
        }
        if (logged.peak != expected.peak) {
            return Differ("peak", logged.peak, expected.peak);
        }
        if (logged.threads != static_cast<int64>(expected.account.threadIds.size())) {
            return Differ(
                "threads", logged.threads, static_cast<int64>(expected.account.threadIds.size()));
        }
        return std::nullopt;
    }

    /// Scopes that are expected in one tree carry the same root in the log, and no others do.
    std::optional<std::string> GatherTrees() {
        std::map<int, std::string> texts;
        std::map<std::string, int> trees;
        for (int i = 0; i < Count(); ++i) {
            if (!Expected(i).isOpened) {
                continue;
            }
            const int tree = Expected(i).tree;
            m_trees[tree].push_back(i);
            m_sightings.scopes += Expected(i).isLogged ? 1U : 0U;
            const std::string& text = Logged(i).root;
            if (text.empty()) {
                continue;
            }
            if (texts.try_emplace(tree, text).first->second != text ||
                trees.try_emplace(text, tree).first->second != tree) {
                return Name(i) + " is in another tree of the log: " + text;
            }
        }
        return std::nullopt;
    }

    std::optional<std::string> AddUp(int root, const std::vector<int>& members) {
        ++m_sightings.trees;
        const bool hasRoot = root >= 0 && HasEnd(root);
        bool addsUp = true;
        Sum anyFigure;
        for (std::size_t i = 0; i < figureCount; ++i) {
            const auto figure = static_cast<Figure>(i);
            Sum sum = AddFigures(root, hasRoot, members, figure);
            if (auto fault = sum.Fault(figureNames[i])) {
                return fault;
            }
            addsUp = addsUp && !sum.HasException();
            anyFigure = sum;
        }
        Sum times = AddTimes(root, hasRoot, members);
        if (auto fault = times.Fault("milliseconds")) {
            return fault;
        }
        for (std::size_t i = 0; i < exceptionCount; ++i) {
            m_sightings.exceptions[i] += anyFigure.met[i] || times.met[i] ? 1U : 0U;
        }
        if (members.size() >= 3) {
            m_sightings.treesThatAddUp += addsUp ? 1U : 0U;
            m_sightings.treesWhoseTimeAddsUp += times.HasException() ? 0U : 1U;
        }
        if (addsUp && hasRoot && m_comparesScopes) {
            return CompareWithTruth(root, members);
        }
        return std::nullopt;
    }

    /// A parent keeps the share of a transparent child, unless it measures nothing itself.
    bool KeepsShareOf(int child) const {
        const ExpectedScope& scope = Expected(child);
        return scope.foldedInto != ExpectedScope::none &&
               (!scope.foldedOnSameThread || !Expected(scope.foldedInto).kind.IsMarkedUntracked());
    }

    bool IsInTree(int scope, int tree) const { return Expected(scope).tree == tree; }

    Sum AddFigures(int root, bool hasRoot, const std::vector<int>& members, Figure figure) const {
        Sum sum;
        sum.root = hasRoot ? Logged(root).inclusive[figure] : 0;
        for (const int member : members) {
            const ExpectedScope& scope = Expected(member);
            const int64 own = scope.Exclusive(figure);
            const int64 inclusive = scope.Inclusive(figure);
            if (HasEnd(member)) {
                sum.logged += Logged(member).exclusive[figure];
            }
            if (scope.isDropped) {
                sum.Meet(member == root ? RootHasNoEnd : EndedOutOfOrder, inclusive - own);
                continue;
            }
            if (member == root && !hasRoot) {
                sum.Meet(RootHasNoEnd, inclusive - own);
                continue;
            }
            if (member == root) {
                continue;
            }
            if (scope.foldedInto == ExpectedScope::none) {
                sum.Meet(SponsorsHadEnded, scope.isLogged ? inclusive : inclusive - own);
            } else if (!IsInTree(scope.foldedInto, root)) {
                sum.Meet(TreesDiffer, scope.isLogged ? inclusive : inclusive - own);
            } else if (scope.kind.IsTransparent() && scope.isLogged && KeepsShareOf(member)) {
                sum.Meet(TransparentIsLogged, own);
            } else if (scope.kind.IsTransparent() && !scope.isLogged && !KeepsShareOf(member)) {
                sum.Meet(TransparentIsLost, -own);
            }
        }
        for (int other = 0; other < Count(); ++other) {
            const ExpectedScope& scope = Expected(other);
            if (scope.foldedInto != ExpectedScope::none && !IsInTree(other, root) &&
                IsInTree(scope.foldedInto, root)) {
                const bool isKept = scope.kind.IsTransparent() && KeepsShareOf(other);
                sum.Meet(TreesDiffer,
                         (isKept ? scope.Exclusive(figure) : 0) - scope.Inclusive(figure));
            }
        }
        return sum;
    }

    Sum AddTimes(int root, bool hasRoot, const std::vector<int>& members) const {
        Sum sum;
        sum.root = hasRoot ? Milliseconds(Logged(root).elapsed) : 0;
        for (const int member : members) {
            const ExpectedScope& scope = Expected(member);
            if (HasEnd(member)) {
                sum.logged += Milliseconds(Logged(member).exclusiveTime);
            }
            if (scope.isDropped) {
                sum.Meet(member == root ? RootHasNoEnd : EndedOutOfOrder, scope.childrenMs);
                continue;
            }
            const bool isInRoot = member == root;
            if (isInRoot && !hasRoot) {
                sum.Meet(RootHasNoEnd, scope.childrenMs);
                continue;
            }
            if (!isInRoot && scope.foldedInto == ExpectedScope::none) {
                sum.Meet(SponsorsHadEnded, scope.elapsedMs);
            } else if (!isInRoot && !IsInTree(scope.foldedInto, root)) {
                sum.Meet(TreesDiffer, scope.elapsedMs);
            } else if (!isInRoot && !scope.foldedOnSameThread) {
                sum.Meet(OnAnotherThread, scope.elapsedMs);
            }
            if (!scope.isLogged) {
                sum.Meet(TransparentTakesTime, -scope.ExclusiveMs());
            }
        }
        for (int other = 0; other < Count(); ++other) {
            const ExpectedScope& scope = Expected(other);
            if (scope.foldedInto != ExpectedScope::none && scope.foldedOnSameThread &&
                !IsInTree(other, root) && IsInTree(scope.foldedInto, root)) {
                sum.Meet(TreesDiffer, -scope.elapsedMs);
            }
        }
        return sum;
    }

    /// Where everything is measured, once, and on its own thread, the root's inclusive figures
    /// are what was really used.
    std::optional<std::string> CompareWithTruth(int root, const std::vector<int>& members) {
        if (!m_expectation.isTrackingConstant) {
            return std::nullopt;
        }
        Amounts used{};
        for (const int member : members) {
            const ExpectedScope& scope = Expected(member);
            if (!scope.isPlainlyPlaced || !scope.kind.IsPlain() || scope.isMoved) {
                return std::nullopt;
            }
            for (std::size_t i = 0; i < figureCount; ++i) {
                used[i] += scope.isMeasuredBySomeone ? scope.own[i] : 0;
            }
        }
        constexpr int64 longest = 4'294'967'295;
        if (used[KernelTime] > longest || used[ProgramTime] > longest) {
            return std::nullopt;
        }
        for (std::size_t i = 0; i < figureCount; ++i) {
            if (Logged(root).inclusive[i] != used[i]) {
                return Differ(std::string("the root's ") + figureNames[i],
                              Logged(root).inclusive[i],
                              used[i]) +
                       " were used";
            }
        }
        ++m_sightings.treesThatTellTheTruth;
        return std::nullopt;
    }

    const Expectation& m_expectation;
    const LoggedScopes& m_log;
    Sightings& m_sightings;
    std::map<int, std::vector<int>> m_trees;
    bool m_comparesScopes = true;
};

}  // namespace

std::optional<std::string> FindFault(const Expectation& expectation,
                                     const LoggedScopes& log,
                                     Sightings& sightings) {
    return Check(expectation, log, sightings).Run(true);
}

std::optional<std::string> FindFaultInSums(const Expectation& expectation,
                                           const LoggedScopes& log,
                                           Sightings& sightings) {
    return Check(expectation, log, sightings).Run(false);
}

}  // namespace figures
