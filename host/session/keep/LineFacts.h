#pragma once

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/host/EventReader.h"

#include <cstddef>
#include <string>

namespace tarn {

/// What the rules go by in a line of an activity. Texts are UTF-8.
struct LineFacts {
    enum class Phase { Begin, End, Other };

    Phase phase = Phase::Other;
    std::string id;
    std::string root;  ///< of the tree: the id, where the line names none
    std::string name;
    bool isSampled = false;  ///< its caller has asked for it
    bool isFailure = false;
    double elapsed = 0;    ///< seconds
    double exclusive = 0;  ///< seconds
    TLog::EventTimePoint time;
    std::size_t bytes = 0;  ///< that the line takes while it waits, about

    bool IsRoot() const noexcept { return id == root; }
};

/// Reads them. Used by one thread at a time.
class LineReader {
public:
    LineReader();

    /// False for what is no line of an activity with an id. Throws `std::bad_alloc`.
    bool Read(const TLog::Event& event, LineFacts& facts);

private:
    TLog::EventReader m_reader;
};

}  // namespace tarn
