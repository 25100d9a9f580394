#include "model/Messages.h"

#include <algorithm>
#include <limits>

namespace tarnview {

namespace {

// 8-4-4-4-12 hexadecimal digits.
constexpr std::size_t idLength = 36;

bool IsIdLetter(char letter, std::size_t place) {
    if (place == 8 || place == 13 || place == 18 || place == 23) {
        return letter == '-';
    }
    return (letter >= '0' && letter <= '9') || (letter >= 'A' && letter <= 'F');
}

Microseconds EndOf(const Activity& activity) {
    return activity.hasEnd ? activity.begin + activity.Duration()
                           : std::numeric_limits<Microseconds>::max();
}

}  // namespace

Messages::Messages(const ActivityForest& forest) : m_forest(forest) {
    for (Index index = 0; index < forest.Size(); ++index) {
        m_byId.emplace(forest[index].id, index);
        m_byThread[{forest[index].process, forest[index].beginThread}].push_back(index);
    }
    for (auto& [thread, indices] : m_byThread) {
        std::stable_sort(indices.begin(), indices.end(), [&](Index a, Index b) {
            return forest[a].begin != forest[b].begin ? forest[a].begin < forest[b].begin
                                                      : forest[a].depth < forest[b].depth;
        });
        std::vector<Index> open;
        for (const Index index : indices) {
            while (!open.empty() && EndOf(forest[open.back()]) < forest[index].begin) {
                open.pop_back();
            }
            m_around[index] = open.empty() ? ActivityForest::none : open.back();
            open.push_back(index);
        }
    }
}

void Messages::Take(const LogLine& line, const Place& place) {
    if (line.IsOfActivity()) {
        return;
    }
    const std::string_view text = line.message.empty() ? line.event : line.message;
    const auto named = m_byId.find(line.id);
    Index index = named != m_byId.end() ? named->second : FindById(text);
    if (index == ActivityForest::none) {
        index = FindByTime(line);
    }
    if (index != ActivityForest::none) {
        m_messages[index].push_back(
            {line.time, std::string(line.severity), std::string(text), place});
    }
}

ActivityForest::Index Messages::FindById(std::string_view text) const {
    for (std::size_t begin = 0; begin + idLength <= text.size(); ++begin) {
        std::size_t length = 0;
        while (length < idLength && IsIdLetter(text[begin + length], length)) {
            ++length;
        }
        if (length == idLength) {
            const auto found = m_byId.find(text.substr(begin, idLength));
            if (found != m_byId.end()) {
                return found->second;
            }
        }
    }
    return ActivityForest::none;
}

ActivityForest::Index Messages::FindByTime(const LogLine& line) const {
    const auto thread = m_byThread.find({line.process, line.thread});
    if (thread == m_byThread.end()) {
        return ActivityForest::none;
    }
    const std::vector<Index>& indices = thread->second;
    const auto next = std::upper_bound(
        indices.begin(), indices.end(), line.time, [&](Microseconds time, Index index) {
            return time < m_forest[index].begin;
        });
    Index index = next == indices.begin() ? ActivityForest::none : *(next - 1);
    while (index != ActivityForest::none && EndOf(m_forest[index]) < line.time) {
        index = m_around.at(index);
    }
    return index;
}

std::vector<Message> Messages::Of(ActivityForest::Index index) const {
    const auto found = m_messages.find(index);
    if (found == m_messages.end()) {
        return {};
    }
    std::vector<Message> messages = found->second;
    std::stable_sort(messages.begin(), messages.end(), [](const Message& a, const Message& b) {
        return a.time < b.time;
    });
    return messages;
}

}  // namespace tarnview
