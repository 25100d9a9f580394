#pragma once

#include "engine/NativeReader.h"
#include "model/Filter.h"
#include "model/TopStatistics.h"

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tarnview {

/// The figures of groups of activities, added up by the engine. Durations come back counted by the
/// classes of DurationHistogram, and of small groups one by one, so that quantiles are those that
/// this program computes. Used by one thread.
class TopQuestion {
public:
    using Rows = std::map<std::vector<std::string>, TopRow>;
    /// Asks, and hands out the rows of the answer.
    using Asking = std::function<void(const std::string&, const NativeReader::OnRow&)>;

    /// Nothing if the engine cannot group or filter so.
    static std::optional<TopQuestion> For(const std::vector<std::string>& groups,
                                          const Filter& filter);

    /// The rows of what has ended.
    Rows Ask(const Asking& ask) const;

private:
    std::vector<std::string> ReadKey(NativeReader& reader) const;

    std::string m_keys;   // as expressions with names
    std::string m_names;  // of these
    std::size_t m_keyCount = 0;
    std::string m_condition;
};

}  // namespace tarnview
