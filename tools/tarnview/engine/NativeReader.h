#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnview {

/// Of a value of this type in the format Native, in bytes; 0: texts, with their length in front.
/// Nothing if tarnview has no such columns.
std::optional<std::size_t> WidthOfType(std::string_view type);

/// Reads blocks of the engine's format Native as their bytes come, and hands out their rows. It
/// holds one block. A row is read by a call for each column, in the order of the columns, of which
/// the names must be the same. Used by one thread.
class NativeReader {
public:
    using OnRow = std::function<void(NativeReader& row)>;

    explicit NativeReader(OnRow onRow) : m_onRow(std::move(onRow)) {}

    /// Throws EngineError if it is no block; the engine may have written what went wrong instead.
    void Take(std::string_view bytes);

    /// Throws EngineError if the answer ends in the middle of a block.
    void Finish() const;

    void Date(const char* name, std::uint16_t& day) { Read(name, day); }

    void UInt8(const char* name, std::uint8_t& value) { Read(name, value); }

    void UInt16(const char* name, std::uint16_t& value) { Read(name, value); }

    void UInt32(const char* name, std::uint32_t& value) { Read(name, value); }

    void UInt64(const char* name, std::uint64_t& value) { Read(name, value); }

    void Int64(const char* name, std::int64_t& value) { Read(name, value); }

    void Float64(const char* name, double& value) { Read(name, value); }

    void Uuid(const char* name, std::uint64_t (&halves)[2]) { Read(name, halves); }

    /// Valid until the row has been handed out.
    void Text(const char* name, std::string_view& text);

private:
    struct Column {
        std::string name;
        std::size_t width = 0;  // of a value; 0: texts
        std::size_t begin = 0;  // of the next value, in the bytes
    };

    template <class Value>
    void Read(const char* name, Value& value) {
        std::memcpy(&value, &m_bytes[Next(name, sizeof(value)).begin], sizeof(value));
        m_columns[m_next++].begin += sizeof(value);
    }

    const Column& Next(const char* name, std::size_t width) const;
    bool Walk();
    bool WalkHeader();
    bool WalkColumn();
    bool TakeNumber(std::uint64_t& number, std::size_t& place) const;
    bool TakeName(std::string& text, std::size_t& place) const;
    void HandOut();
    [[noreturn]] void Refuse() const;

    OnRow m_onRow;
    std::string m_bytes;
    // How far the block in the bytes is known.
    std::size_t m_place = 0;
    std::uint64_t m_columnCount = 0;
    std::uint64_t m_rows = 0;
    std::uint64_t m_textsSeen = 0;  // of the column that is walked now
    bool m_hasHeader = false;
    bool m_hasColumn = false;
    std::vector<Column> m_columns;
    std::size_t m_next = 0;
};

}  // namespace tarnview
