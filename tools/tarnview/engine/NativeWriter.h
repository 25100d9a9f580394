#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace tarnview {

inline void AppendVarUInt(std::string& to, std::uint64_t number) {
    while (number >= 0x80) {
        to.push_back(static_cast<char>(number | 0x80));
        number >>= 7U;
    }
    to.push_back(static_cast<char>(number));
}

/// Collects rows as one block of the engine's format Native: column by column, with the number of
/// rows in front. A block that is cut short on its way is an error for the engine, so that what
/// arrives is all of it or nothing. Little-endian machines only. Used by one thread.
///
/// A row is a call for each column, always in the same order; the first one names the columns.
class NativeWriter {
public:
    void BeginRow() {
        m_next = 0;
        ++m_rows;
    }

    void Date(const char* name, std::uint16_t day) { Append(name, "Date", day); }

    void UInt8(const char* name, std::uint8_t value) { Append(name, "UInt8", value); }

    void UInt16(const char* name, std::uint16_t value) { Append(name, "UInt16", value); }

    void UInt32(const char* name, std::uint32_t value) { Append(name, "UInt32", value); }

    void UInt64(const char* name, std::uint64_t value) { Append(name, "UInt64", value); }

    void Int64(const char* name, std::int64_t value) { Append(name, "Int64", value); }

    void Float64(const char* name, double value) { Append(name, "Float64", value); }

    /// High half first.
    void Uuid(const char* name, const std::uint64_t (&halves)[2]) {
        std::string& bytes = Column(name, "UUID");
        bytes.append(reinterpret_cast<const char*>(halves), sizeof(halves));
    }

    void Text(const char* name, std::string_view text) {
        std::string& bytes = Column(name, "String");
        AppendVarUInt(bytes, text.size());
        bytes.append(text);
    }

    std::uint64_t Rows() const { return m_rows; }

    /// How much has been collected.
    std::size_t Bytes() const;

    /// The names of the columns, joined by commas.
    std::string Names() const;

    /// The block. The writer is empty from then on.
    std::string Take();

private:
    struct NamedColumn {
        const char* name;
        const char* type;
        std::string bytes;
    };

    std::string& Column(const char* name, const char* type) {
        if (m_next == m_columns.size()) {
            m_columns.push_back({name, type, {}});
        }
        return m_columns[m_next++].bytes;
    }

    template <class Number>
    void Append(const char* name, const char* type, Number number) {
        char bytes[sizeof(number)];
        std::memcpy(bytes, &number, sizeof(number));
        Column(name, type).append(bytes, sizeof(bytes));
    }

    std::vector<NamedColumn> m_columns;
    std::size_t m_next = 0;
    std::uint64_t m_rows = 0;
};

}  // namespace tarnview
