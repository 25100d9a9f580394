#pragma once

#include "read/LogLine.h"
#include "read/Problems.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

namespace tarnview {

/// Checks the figures of each activity against those of its children: an inclusive figure must be
/// the exclusive one and the inclusive ones of the children that ended before it in its process;
/// exclusive time is elapsed time less that of the children that ended on the same thread. Holds
/// the open activities, and ended ones whose children are open. Used by one thread.
class FiguresCheck {
public:
    explicit FiguresCheck(Problems& problems) : m_problems(problems) {}

    void Take(const LogLine& line, const Place& place);

private:
    static constexpr std::size_t figureCount = 5;
    using Sums = std::array<double, figureCount>;

    struct Node {
        std::string root;
        ProcessId process{};
        std::int64_t thread = 0;
        std::shared_ptr<Node> sponsor;
        std::shared_ptr<Node> below;  // on the thread, when this one began
        bool isOpen = true;
        Sums children{};
        std::int64_t childrenTime = 0;  // ms
    };

    using NodePointer = std::shared_ptr<Node>;

    void Begin(const LogLine& line);
    void End(const LogLine& line, const Place& place);
    NodePointer FindSponsor(const LogLine& line);
    void Compare(const LogLine& line, const Node& node, const Place& place);
    static Sums Inclusive(const Figures& figures);
    static Sums Exclusive(const Figures& figures);
    static std::string KeyOf(const ProcessId& process, std::string_view text);
    NodePointer& Innermost(const LogLine& line);

    Problems& m_problems;
    std::unordered_map<std::string, NodePointer> m_open;
    std::unordered_map<std::string, NodePointer> m_innermost;  // of each thread
};

}  // namespace tarnview
