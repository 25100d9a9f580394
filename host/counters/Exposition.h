#pragma once

#include "cvlsys/IntegerTypes.h"

#include <string>
#include <string_view>
#include <utility>

namespace tarn {

/// A text as the value of a label: backslashes, quotes and ends of lines are escaped. It has no
/// NUL, at which names end.
std::string EscapeLabel(std::string_view text);

/// A text in the format of Prometheus, version 0.0.4, family by family. Throws `std::bad_alloc`.
class Exposition {
public:
    /// Begins a family; its samples follow. `type` is "counter", "gauge" or "histogram".
    void Family(std::string_view name, std::string_view type, std::string_view help);

    /// A sample of the family: its name and `suffix`, and labels, escaped and without braces.
    void Sample(std::string_view suffix, std::string_view labels, uint64 value);

    /// As `Sample`, where `value` is in units of which a second has 10 to the power of `digits`.
    void Seconds(std::string_view suffix, std::string_view labels, uint64 value, int digits);

    /// A family with one sample.
    void Counter(std::string_view name, std::string_view help, uint64 value);
    void Gauge(std::string_view name, std::string_view help, uint64 value);

    std::string Take() && { return std::move(m_text); }

private:
    void Head(std::string_view suffix, std::string_view labels);
    void Number(uint64 value);

    std::string m_text;
    std::string m_family;
};

}  // namespace tarn
