#include "W3cHeaders.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace tarn {
namespace {

constexpr std::size_t mostMembers = 32;
constexpr std::size_t mostCharacters = 512;
constexpr std::size_t longMember = 128;

bool IsDigit(char character) noexcept {
    return character >= '0' && character <= '9';
}

bool IsLower(char character) noexcept {
    return character >= 'a' && character <= 'z';
}

bool IsLowerHex(char character) noexcept {
    return IsDigit(character) || (character >= 'a' && character <= 'f');
}

bool IsHex(std::string_view text) noexcept {
    return std::ranges::all_of(text, IsLowerHex);
}

bool IsZero(std::string_view text) noexcept {
    return text.find_first_not_of('0') == std::string_view::npos;
}

/// Without the blanks that may surround a value in a header.
std::string_view Trim(std::string_view text) noexcept {
    constexpr std::string_view blanks = " \t";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

int NibbleOf(char digit) noexcept {
    return IsDigit(digit) ? digit - '0' : digit - 'a' + 10;
}

// ---- Members of a tracestate

bool IsPartOfKey(char character) noexcept {
    return IsLower(character) || IsDigit(character) || character == '_' || character == '-' ||
           character == '*' || character == '/';
}

/// A part of a name: a letter, or a digit where that is allowed, and up to `more` characters.
bool IsKeyPart(std::string_view text, bool mayBeginWithDigit, std::size_t more) noexcept {
    return !text.empty() && text.size() <= more + 1 &&
           (IsLower(text.front()) || (mayBeginWithDigit && IsDigit(text.front()))) &&
           std::ranges::all_of(text, IsPartOfKey);
}

/// "name", or "tenant@system".
bool IsKey(std::string_view text) noexcept {
    const std::size_t at = text.find('@');
    if (at == std::string_view::npos) {
        return IsKeyPart(text, false, 255);
    }
    return IsKeyPart(text.substr(0, at), true, 240) && IsKeyPart(text.substr(at + 1), false, 13);
}

bool IsMemberValue(std::string_view text) noexcept {
    const auto isAllowed = [](char character) {
        return character >= ' ' && character <= '~' && character != ',' && character != '=';
    };
    return !text.empty() && text.size() <= 256 && text.back() != ' ' &&
           std::ranges::all_of(text, isAllowed);
}

std::string_view NameOf(std::string_view member) noexcept {
    return member.substr(0, member.find('='));
}

/// Appends the members of one value. False if it breaks the rules.
bool AppendMembers(std::string_view value, std::vector<std::string>& members) {
    while (!value.empty()) {
        const std::size_t comma = value.find(',');
        const std::string_view member = Trim(value.substr(0, comma));
        value = comma == std::string_view::npos ? std::string_view() : value.substr(comma + 1);
        if (member.empty()) {
            continue;
        }
        const std::size_t sign = member.find('=');
        const std::string_view name = member.substr(0, sign);
        const auto hasName = [name](const std::string& other) { return NameOf(other) == name; };
        if (sign == std::string_view::npos || !IsKey(name) ||
            !IsMemberValue(member.substr(sign + 1)) || members.size() == mostMembers ||
            std::ranges::any_of(members, hasName)) {
            return false;
        }
        members.emplace_back(member);
    }
    return true;
}

std::size_t LengthOf(const std::vector<std::string>& members) noexcept {
    std::size_t length = members.empty() ? 0 : members.size() - 1;
    for (const std::string& member : members) {
        length += member.size();
    }
    return length;
}

}  // namespace

std::optional<TraceParent> TraceParent::Read(std::string_view text) {
    // "00-" trace "-" parent "-" flags
    constexpr std::size_t size = 55;
    text = Trim(text);
    if (text.size() < size || text[2] != '-' || text[35] != '-' || text[52] != '-') {
        return std::nullopt;
    }
    const std::string_view version = text.substr(0, 2);
    const std::string_view trace = text.substr(3, 32);
    const std::string_view parent = text.substr(36, 16);
    const std::string_view flags = text.substr(53, 2);
    if (!IsHex(version) || !IsHex(trace) || !IsHex(parent) || !IsHex(flags) || version == "ff" ||
        IsZero(trace) || IsZero(parent)) {
        return std::nullopt;
    }
    // Later versions may go on, behind another hyphen.
    if (text.size() > size && (version == "00" || text[size] != '-')) {
        return std::nullopt;
    }
    return TraceParent{std::string(trace), std::string(parent), (NibbleOf(flags.back()) & 1) != 0};
}

std::string TraceParent::ToText() const {
    return "00-" + traceId + "-" + parentId + (isSampled ? "-01" : "-00");
}

TraceState TraceState::Read(const std::vector<std::string>& values) {
    TraceState state;
    for (const std::string& value : values) {
        if (!AppendMembers(value, state.m_members)) {
            return {};
        }
    }
    return state;
}

std::string TraceState::Take(std::string_view name) {
    const auto found = std::ranges::find(m_members, name, NameOf);
    if (found == m_members.end()) {
        return {};
    }
    std::string value = found->substr(name.size() + 1);
    m_members.erase(found);
    return value;
}

void TraceState::Put(std::string_view name, std::string_view value) {
    Take(name);
    std::string member(name);
    member += '=';
    member += value;
    m_members.insert(m_members.begin(), std::move(member));
    if (m_members.size() > mostMembers) {
        m_members.pop_back();
    }
    // The one in front stays.
    for (std::size_t i = m_members.size() - 1; i > 0 && LengthOf(m_members) > mostCharacters; --i) {
        if (m_members[i].size() > longMember) {
            m_members.erase(m_members.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
    while (m_members.size() > 1 && LengthOf(m_members) > mostCharacters) {
        m_members.pop_back();
    }
}

std::string TraceState::ToText() const {
    std::string text;
    for (const std::string& member : m_members) {
        if (!text.empty()) {
            text += ',';
        }
        text += member;
    }
    return text;
}

std::string HexOfId(std::string_view id) {
    constexpr std::string_view form = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
    if (id.size() != form.size()) {
        return {};
    }
    std::string digits;
    for (std::size_t i = 0; i < form.size(); ++i) {
        if (form[i] == '-') {
            if (id[i] != '-') {
                return {};
            }
        } else if (IsDigit(id[i]) || (id[i] >= 'A' && id[i] <= 'F')) {
            digits += IsDigit(id[i]) ? id[i] : static_cast<char>(id[i] - 'A' + 'a');
        } else {
            return {};
        }
    }
    return digits;
}

std::string IdOfHex(std::string_view digits) {
    std::string id;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (i == 8 || i == 12 || i == 16 || i == 20) {
            id += '-';
        }
        id += IsDigit(digits[i]) ? digits[i] : static_cast<char>(digits[i] - 'a' + 'A');
    }
    return id;
}

}  // namespace tarn
