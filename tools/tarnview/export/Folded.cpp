#include "export/Exports.h"
#include "read/Printable.h"
#include "read/Rounding.h"

#include <algorithm>
#include <map>
#include <ostream>

namespace tarnview {

namespace {

using Index = ActivityForest::Index;

// The form parts names by semicolons and lines by line ends.
std::string FrameOf(const std::string& name) {
    std::string frame = Printable(name);
    std::replace(frame.begin(), frame.end(), ';', '_');
    return frame;
}

long long WeightOf(const ActivityForest& forest, Index index, FoldedWeight weight) {
    switch (weight) {
        case FoldedWeight::Time:
            return forest[index].hasEnd ? forest.SelfTime(index) : 0;
        case FoldedWeight::Cpu:
            return Rounded(forest[index].figures.CpuExclusive());
        case FoldedWeight::Memory:
            return Rounded(forest[index].figures.ae);
    }
    return 0;
}

}  // namespace

void ExportFolded(const ActivityForest& forest, FoldedWeight weight, std::ostream& out) {
    std::map<std::string, long long> stacks;
    for (const Index top : forest.Tops()) {
        std::vector<std::size_t> lengths;  // of the path down to each level
        std::string path;
        for (const auto& [index, level] : forest.PreOrder(top)) {
            if (level < deepestStack) {
                path.resize(level == 0 ? 0 : lengths[level - 1]);
                path += (level == 0 ? "" : ";") + FrameOf(forest[index].name);
                lengths.resize(level);
                lengths.push_back(path.size());
            }
            stacks[path] += WeightOf(forest, index, weight);
        }
    }
    for (const auto& [path, sum] : stacks) {
        if (sum > 0) {
            out << path << ' ' << sum << '\n';
        }
    }
}

}  // namespace tarnview
