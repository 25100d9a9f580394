#include "ScopeTree.h"

#include "Matchers.h"

#include <map>
#include <optional>
#include <vector>

namespace tarn::test {

namespace {

struct Node {
    std::string name;
    std::string depth;
    std::string sponsor;
    std::string result;
    bool hasBegun = false;
    bool hasEnded = false;
    std::vector<std::string> children;
};

/// A text field without its quotes; empty when there is none.
std::string Text(const TLog::Event& event, const std::string& name) {
    const std::optional<LogValue> value = Field(event, Table::Activity, name);
    if (!value) {
        return {};
    }
    const std::string& text = value->Text();
    return text.size() >= 2 && text.front() == '"' ? text.substr(1, text.size() - 2) : text;
}

void Draw(const std::map<std::string, Node>& nodes,
          const std::string& id,
          const std::string& indentation,
          std::string& out) {
    const Node& node = nodes.at(id);
    out += indentation;
    if (indentation.empty() && !node.sponsor.empty()) {
        out += "[" + node.depth + "] ";
    }
    out += node.name;
    if (!node.result.empty() && node.result != "ok") {
        out += ": " + node.result;
    }
    out += node.hasBegun ? "" : " (no begin)";
    out += node.hasEnded ? "" : " (open)";
    out += '\n';
    for (const std::string& child : node.children) {
        Draw(nodes, child, indentation + "  ", out);
    }
}

}  // namespace

std::string DrawScopeTree(const CapturedEvents& events) {
    std::map<std::string, Node> nodes;
    std::vector<std::string> order;
    for (const TLog::Event& event : events) {
        const std::string id = Text(event, "id");
        const auto [found, isNew] = nodes.try_emplace(id);
        if (isNew) {
            order.push_back(id);
        }
        Node& node = found->second;
        node.name = Text(event, "name");
        node.depth = Text(event, "depth");
        if (Text(event, "type") == "begin") {
            node.hasBegun = true;
        } else {
            node.hasEnded = true;
            node.result = Text(event, "rk");
        }
        // The end may name another sponsor, when the first one closed before; the first counts.
        if (isNew) {
            node.sponsor = Text(event, "sponsor");
        }
    }

    std::vector<std::string> margin;
    for (const std::string& id : order) {
        const auto sponsor = nodes.find(nodes.at(id).sponsor);
        if (sponsor == nodes.end() || sponsor->first == id) {
            margin.push_back(id);
        } else {
            sponsor->second.children.push_back(id);
        }
    }

    std::string drawing;
    for (const std::string& id : margin) {
        Draw(nodes, id, "", drawing);
    }
    return drawing;
}

}  // namespace tarn::test
