#pragma once

#include "activity/Activity.h"
#include "engine/NativeReader.h"
#include "engine/NativeWriter.h"

#include <cstdint>
#include <set>
#include <string>

namespace tarnview {

/// The number of the day of a time, counted from 1970; what a date of the engine cannot be is the
/// first or the last one.
std::uint16_t DayOf(Microseconds time);

/// Where in the engine a row belongs. Rows of one loader are in the order of its lines by `line`.
struct RowOrigin {
    std::uint16_t day = 0;
    std::uint64_t loader = 0;
    std::uint32_t block = 0;
    std::uint64_t line = 0;  ///< of all lines that the loader has read
};

/// An activity as a row of the engine: all that its begin and its end line say, and the figures
/// that follow from them.
struct ActivityRow {
    RowOrigin origin;             ///< by the end line, or by the begin line of what has not ended
    std::uint64_t beginLine = 0;  ///< of the loader; 0 if there is none
    bool wasOpen = false;         ///< is in the table of what has not ended as well
    Activity activity;
};

/// Texts that many rows have in common, as the names of files. Used by one thread.
class TextPool {
public:
    /// Lives as long as the pool.
    std::string_view Keep(std::string_view text);

private:
    std::set<std::string, std::less<>> m_texts;
};

void Write(const ActivityRow& row, NativeWriter& writer);

/// The columns must have been asked for by ColumnsToRead().
ActivityRow ReadActivityRow(NativeReader& reader, TextPool& files);

/// The columns of the tables with their types, for CREATE TABLE.
std::string ActivityColumns();

/// Of the columns what is to be selected; without tables these are empty.
std::string ActivityColumnsToRead(bool wantsTables);

/// A line that is of no activity, as a message.
struct MessageRow {
    RowOrigin origin;
    LogLine line;
    Place place;
};

void Write(const MessageRow& row, NativeWriter& writer);

/// Its texts are valid as long as the row of the reader.
MessageRow ReadMessageRow(NativeReader& reader, TextPool& files);

std::string MessageColumns();
std::string MessageColumnsToRead();

/// A line that is no line of a log: kept as it is.
struct RejectedRow {
    RowOrigin origin;
    Place place;
    std::string_view reason;
    std::string_view text;
};

void Write(const RejectedRow& row, NativeWriter& writer);

std::string RejectedColumns();

}  // namespace tarnview
