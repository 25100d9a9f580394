#include "engine/NativeWriter.h"

namespace tarnview {

std::size_t NativeWriter::Bytes() const {
    std::size_t bytes = 0;
    for (const NamedColumn& column : m_columns) {
        bytes += column.bytes.size();
    }
    return bytes;
}

std::string NativeWriter::Names() const {
    std::string names;
    for (const NamedColumn& column : m_columns) {
        names += (names.empty() ? "" : ", ") + std::string(column.name);
    }
    return names;
}

std::string NativeWriter::Take() {
    std::string block;
    block.reserve(Bytes() + m_columns.size() * 32 + 32);
    AppendVarUInt(block, m_columns.size());
    AppendVarUInt(block, m_rows);
    for (NamedColumn& column : m_columns) {
        for (const std::string_view text : {column.name, column.type}) {
            AppendVarUInt(block, text.size());
            block.append(text);
        }
        block.append(column.bytes);
        column.bytes.clear();
    }
    m_rows = 0;
    return block;
}

}  // namespace tarnview
