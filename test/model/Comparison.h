#pragma once

#include "Observation.h"

#include <optional>
#include <set>
#include <string>

namespace model {

/// The first thing in which two observations differ.
struct Difference {
    std::string field;  ///< path, such as "journal[2].event.activity.depth"
    std::string expected;
    std::string actual;
};

/// Compares what the library did with what the model says. One for each monitor: it remembers the
/// generated request ids, which must all be different.
class Comparison {
public:
    std::optional<Difference> FirstDifference(const Observation& expected,
                                              const Observation& actual);

private:
    void Check(const Entry& expected, const Entry& actual, const std::string& path);
    void Check(const LogEvent& expected, const LogEvent& actual, const std::string& path);
    void Check(const Node& expected, const Node& actual, const std::string& path);
    void Check(const std::optional<Raised>& expected, const std::optional<Raised>& actual);
    void CheckGeneratedId(const std::u16string& actual, const std::string& path);

    std::set<std::u16string> m_generatedIds;
};

}  // namespace model
