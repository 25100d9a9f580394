#include "engine/NativeReader.h"

#include "engine/EngineClient.h"

namespace tarnview {

namespace {

constexpr std::uint64_t mostColumns = 1000;
constexpr std::uint64_t mostRows = std::uint64_t{1} << 24;
constexpr std::size_t longestName = 1000;

struct TypeWidth {
    std::string_view type;
    std::size_t width;
};

constexpr TypeWidth widths[] = {{"Date", 2},
                                {"UInt8", 1},
                                {"UInt16", 2},
                                {"UInt32", 4},
                                {"UInt64", 8},
                                {"Int64", 8},
                                {"Float64", 8},
                                {"UUID", 16},
                                {"String", 0}};

}  // namespace

std::optional<std::size_t> WidthOfType(std::string_view type) {
    for (const TypeWidth& known : widths) {
        if (known.type == type) {
            return known.width;
        }
    }
    return std::nullopt;
}

void NativeReader::Take(std::string_view bytes) {
    m_bytes.append(bytes);
    while (Walk()) {
        const std::size_t end = m_place;
        HandOut();
        m_bytes.erase(0, end);
        m_place = 0;
        m_hasHeader = false;
        m_columns.clear();
    }
}

void NativeReader::Finish() const {
    if (!m_bytes.empty()) {
        Refuse();
    }
}

// Whether a whole block is there.
bool NativeReader::Walk() {
    if (!m_hasHeader && !WalkHeader()) {
        return false;
    }
    while (m_columns.size() < m_columnCount || m_hasColumn) {
        if (!WalkColumn()) {
            return false;
        }
    }
    return true;
}

bool NativeReader::WalkHeader() {
    std::size_t place = 0;
    if (!TakeNumber(m_columnCount, place) || !TakeNumber(m_rows, place)) {
        return false;
    }
    if (m_columnCount > mostColumns || m_rows > mostRows) {
        Refuse();
    }
    m_place = place;
    m_hasHeader = true;
    return true;
}

bool NativeReader::WalkColumn() {
    if (!m_hasColumn) {
        std::size_t place = m_place;
        Column column;
        std::string type;
        if (!TakeName(column.name, place) || !TakeName(type, place)) {
            return false;
        }
        const std::optional<std::size_t> width = WidthOfType(type);
        if (!width) {
            Refuse();
        }
        column.width = *width;
        column.begin = m_place = place;
        m_columns.push_back(std::move(column));
        m_textsSeen = 0;
        m_hasColumn = true;
    }
    const std::size_t width = m_columns.back().width;
    if (width != 0) {
        if (m_bytes.size() - m_place < width * m_rows) {
            return false;
        }
        m_place += width * m_rows;
    }
    for (; width == 0 && m_textsSeen < m_rows; ++m_textsSeen) {
        std::uint64_t length = 0;
        std::size_t place = m_place;
        if (!TakeNumber(length, place) || m_bytes.size() - place < length) {
            return false;
        }
        m_place = place + length;
    }
    m_hasColumn = false;
    return true;
}

bool NativeReader::TakeNumber(std::uint64_t& number, std::size_t& place) const {
    std::uint64_t result = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
        if (place == m_bytes.size()) {
            return false;
        }
        const auto byte = static_cast<unsigned char>(m_bytes[place++]);
        result |= std::uint64_t{byte & 0x7FU} << shift;
        if (byte < 0x80) {
            number = result;
            return true;
        }
    }
    Refuse();
}

bool NativeReader::TakeName(std::string& text, std::size_t& place) const {
    std::uint64_t length = 0;
    if (!TakeNumber(length, place)) {
        return false;
    }
    if (length > longestName) {
        Refuse();
    }
    if (m_bytes.size() - place < length) {
        return false;
    }
    text = m_bytes.substr(place, length);
    place += length;
    return true;
}

void NativeReader::HandOut() {
    for (std::uint64_t row = 0; row < m_rows; ++row) {
        m_next = 0;
        m_onRow(*this);
    }
}

const NativeReader::Column& NativeReader::Next(const char* name, std::size_t width) const {
    if (m_next == m_columns.size() || m_columns[m_next].name != name ||
        m_columns[m_next].width != width) {
        throw EngineError(std::string("the answer lacks the column ") + name, 0);
    }
    return m_columns[m_next];
}

void NativeReader::Text(const char* name, std::string_view& text) {
    std::size_t place = Next(name, 0).begin;
    std::uint64_t length = 0;
    TakeNumber(length, place);
    text = std::string_view(m_bytes).substr(place, length);
    m_columns[m_next++].begin = place + length;
}

// An engine that fails in the middle of its answer writes why behind what it has written.
void NativeReader::Refuse() const {
    const std::size_t code = m_bytes.find("Code: ");
    throw EngineError(
        code == std::string::npos ? "the answer is cut or is no block" : m_bytes.substr(code, 400),
        0);
}

}  // namespace tarnview
