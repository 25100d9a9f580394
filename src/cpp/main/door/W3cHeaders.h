#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The headers `traceparent` and `tracestate` of the W3C's Trace Context, version 00.

namespace tarn {

/// What a `traceparent` says.
struct TraceParent {
    std::string traceId;   ///< 32 hexadecimal digits in lower case, not all of them 0
    std::string parentId;  ///< 16 likewise
    bool isSampled = true;

    /// None if the text breaks the rules. Of a later version the part that this one knows counts.
    static std::optional<TraceParent> Read(std::string_view text);

    std::string ToText() const;
};

/// The members of a `tracestate`, in order.
class TraceState {
public:
    /// Reads the values of the headers of this name, which count as one. Empty if any of it breaks
    /// the rules: a malformed member, a name that comes twice, more than 32 members.
    static TraceState Read(const std::vector<std::string>& values);

    /// Takes the member of the name out. Empty if there is none.
    std::string Take(std::string_view name);

    /// Puts a member in front, where the one belongs that was written last, in the place of the
    /// former one of this name. What goes beyond 32 members or 512 characters then is left out:
    /// members of more than 128 characters first, from the back.
    void Put(std::string_view name, std::string_view value);

    bool IsEmpty() const noexcept { return m_members.empty(); }

    std::string ToText() const;

private:
    /// "name=value".
    std::vector<std::string> m_members;
};

/// The 32 digits of an id as this system writes it, "6FEC1044-CACC-4642-A403-F751B5161C7D", in
/// lower case; empty if it is another text.
std::string HexOfId(std::string_view id);

/// The opposite of it, of 32 digits.
std::string IdOfHex(std::string_view digits);

}  // namespace tarn
