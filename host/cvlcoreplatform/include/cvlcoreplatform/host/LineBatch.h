#pragma once

#include "cvlcoreplatform/Export.h"

namespace TLog {

/// While a thread has one, the lines that it logs to a file are held back, at most until the batch
/// ends. They go to the back end that they were logged to; replacing that one waits for them. A
/// batch within a batch does nothing.
class CVLCOREPLATFORM_API LineBatch {
public:
    enum class Holds {
        Lines,   ///< complete, to be written together: for a thread that logs much in one go
        Events,  ///< as they are: for a thread that holds a lock which others wait for
    };

    explicit LineBatch(Holds holds) noexcept;
    ~LineBatch();
    LineBatch(const LineBatch&) = delete;
    LineBatch& operator=(const LineBatch&) = delete;

private:
    const bool m_isOutermost;
};

}  // namespace TLog
