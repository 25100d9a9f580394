#include "model/FailureGroups.h"

#include "expression/ActivityField.h"

#include <algorithm>
#include <functional>

namespace tarnview {

namespace {

std::string DetailOf(const ActivityField& field, const Activity& activity) {
    return field.Of(activity).text;
}

bool IsDigit(char letter) {
    return letter >= '0' && letter <= '9';
}

bool IsHexadecimal(char letter) {
    return IsDigit(letter) || (letter >= 'a' && letter <= 'f') || (letter >= 'A' && letter <= 'F');
}

bool IsLetter(char letter) {
    return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') || letter == '_';
}

}  // namespace

bool IsCause(const Activity& activity) {
    if (!activity.IsFailure()) {
        return false;
    }
    // At the top of a tree the log counts the activity's own end as well.
    const bool isTop = activity.depth == 0;
    return activity.failedChildren <= (isTop ? 1 : 0);
}

std::string WithoutNumbers(std::string_view text) {
    constexpr std::size_t shortestId = 8;
    std::string result;
    std::size_t next = 0;
    while (next < text.size()) {
        std::size_t end = next;
        bool hasDigit = false;
        while (end < text.size() && IsHexadecimal(text[end])) {
            hasDigit = hasDigit || IsDigit(text[end]);
            ++end;
        }
        const bool isId = hasDigit && end - next >= shortestId;
        if (!isId) {
            end = next;
            while (end < text.size() && IsDigit(text[end])) {
                ++end;
            }
        }
        // A digit within a word belongs to the word: "utf8", "x86".
        const bool isInWord = next != 0 && IsLetter(text[next - 1]);
        if (end == next || (isInWord && !isId)) {
            result.push_back(text[next++]);
            continue;
        }
        result.push_back('#');
        next = end;
    }
    return result;
}

void FailureGroups::Take(const Activity& activity) {
    static const ActivityField typeField = *ActivityField::Find("rv.type");
    static const ActivityField messageField = *ActivityField::Find("rv.msg");
    const bool isWanted = m_options.takesAll ? activity.IsFailure() || activity.IsEarlyTermination()
                                             : IsCause(activity);
    if (!isWanted) {
        m_consequences += activity.IsFailure() || activity.IsEarlyTermination() ? 1U : 0U;
        return;
    }
    const std::string type = DetailOf(typeField, activity);
    std::string message = DetailOf(messageField, activity);
    if (!m_options.isExact) {
        message = WithoutNumbers(message);
    }
    FailureGroup& group = m_groups[{activity.name, activity.result, type, message}];
    if (group.count == 0) {
        group.name = activity.name;
        group.result = activity.result;
        group.type = type;
        group.message = message;
    }
    if (group.count == 0 || activity.end < group.first) {
        group.first = activity.end;
        group.firstId = activity.id;
    }
    group.last = group.count == 0 ? activity.end : std::max(group.last, activity.end);
    ++group.count;
    group.roots.insert(std::hash<std::string>()(activity.root));
}

std::vector<FailureGroup> FailureGroups::Groups() const {
    std::vector<FailureGroup> groups;
    groups.reserve(m_groups.size());
    for (const auto& [key, group] : m_groups) {
        groups.push_back(group);
    }
    return groups;
}

}  // namespace tarnview
