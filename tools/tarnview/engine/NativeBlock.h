#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarnview {

/// A block of NativeWriter, taken apart: some of its rows as a block of their own. A value that
/// refers to the bytes.
class NativeBlock {
public:
    /// `bytes` must live as long. Throws `std::runtime_error` if it is no block.
    explicit NativeBlock(std::string_view bytes);

    std::size_t Rows() const { return m_rows; }

    /// The number in a column of whole numbers.
    std::uint64_t Number(std::string_view column, std::size_t row) const;

    /// These rows, in this order.
    std::string Part(const std::vector<std::size_t>& rows) const;

    /// A row as a JSON object, without columns that are 0 or empty.
    std::string Json(std::size_t row) const;

private:
    struct Column {
        std::string_view name;
        std::string_view type;
        std::vector<std::size_t> begins;  // of the values, and the end
    };

    std::string_view Value(const Column& column, std::size_t row) const;

    std::string_view m_bytes;
    std::size_t m_rows = 0;
    std::vector<Column> m_columns;
};

}  // namespace tarnview
