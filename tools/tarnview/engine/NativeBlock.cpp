#include "engine/NativeBlock.h"

#include "engine/NativeReader.h"
#include "engine/NativeWriter.h"
#include "engine/StoredId.h"

#include <algorithm>
#include <cstring>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <stdexcept>

namespace tarnview {

namespace {

using Json = rapidjson::Writer<rapidjson::StringBuffer>;

class Cursor {
public:
    explicit Cursor(std::string_view bytes) : m_bytes(bytes) {}

    std::size_t Place() const { return m_place; }

    std::uint64_t Number() {
        std::uint64_t number = 0;
        for (unsigned shift = 0;; shift += 7) {
            const auto byte = static_cast<unsigned char>(Skip(1).front());
            number |= std::uint64_t{byte & 0x7FU} << shift;
            if (byte < 0x80) {
                return number;
            }
        }
    }

    std::string_view Text() { return Skip(Number()); }

    std::string_view Skip(std::size_t length) {
        if (m_bytes.size() - m_place < length) {
            throw std::runtime_error("a block is cut short");
        }
        const std::string_view text = m_bytes.substr(m_place, length);
        m_place += length;
        return text;
    }

private:
    std::string_view m_bytes;
    std::size_t m_place = 0;
};

template <class Number>
Number As(std::string_view bytes) {
    Number number{};
    std::memcpy(&number, bytes.data(), sizeof(number));
    return number;
}

// Of 64 bits or fewer.
std::uint64_t AsWhole(std::string_view bytes) {
    std::uint64_t number = 0;
    std::memcpy(&number, bytes.data(), bytes.size());
    return number;
}

void WriteValue(Json& json, std::string_view type, std::string_view bytes) {
    if (type == "String") {
        const std::string_view text = Cursor(bytes).Text();
        json.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
    } else if (type == "UUID") {
        json.String(UuidText({As<std::uint64_t>(bytes), As<std::uint64_t>(bytes.substr(8))}));
    } else if (type == "Float64") {
        json.Double(As<double>(bytes));
    } else if (type == "Int64") {
        json.Int64(As<std::int64_t>(bytes));
    } else {
        json.Uint64(AsWhole(bytes));
    }
}

}  // namespace

NativeBlock::NativeBlock(std::string_view bytes) : m_bytes(bytes) {
    Cursor cursor(bytes);
    m_columns.resize(cursor.Number());
    m_rows = cursor.Number();
    for (Column& column : m_columns) {
        column.name = cursor.Text();
        column.type = cursor.Text();
        const std::optional<std::size_t> width = WidthOfType(column.type);
        if (!width) {
            throw std::runtime_error("a block has a column of another type");
        }
        for (std::size_t row = 0; row < m_rows; ++row) {
            column.begins.push_back(cursor.Place());
            cursor.Skip(*width != 0 ? *width : cursor.Number());
        }
        column.begins.push_back(cursor.Place());
    }
}

std::string_view NativeBlock::Value(const Column& column, std::size_t row) const {
    return m_bytes.substr(column.begins[row], column.begins[row + 1] - column.begins[row]);
}

std::uint64_t NativeBlock::Number(std::string_view name, std::size_t row) const {
    const auto found = std::find_if(m_columns.begin(), m_columns.end(), [&](const Column& column) {
        return column.name == name && column.type != "String" && column.type != "UUID";
    });
    if (found == m_columns.end()) {
        throw std::runtime_error("a block lacks the column " + std::string(name));
    }
    return AsWhole(Value(*found, row));
}

std::string NativeBlock::Part(const std::vector<std::size_t>& rows) const {
    std::string block;
    AppendVarUInt(block, m_columns.size());
    AppendVarUInt(block, rows.size());
    for (const Column& column : m_columns) {
        for (const std::string_view text : {column.name, column.type}) {
            AppendVarUInt(block, text.size());
            block.append(text);
        }
        for (const std::size_t row : rows) {
            block.append(Value(column, row));
        }
    }
    return block;
}

std::string NativeBlock::Json(std::size_t row) const {
    rapidjson::StringBuffer text;
    tarnview::Json json(text);
    json.StartObject();
    for (const Column& column : m_columns) {
        const std::string_view value = Value(column, row);
        if (value.find_first_not_of('\0') != std::string_view::npos) {
            json.Key(column.name.data(), static_cast<rapidjson::SizeType>(column.name.size()));
            WriteValue(json, column.type, value);
        }
    }
    json.EndObject();
    return text.GetString();
}

}  // namespace tarnview
