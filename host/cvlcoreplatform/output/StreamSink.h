#pragma once

#include "LineOutput.h"

#include <mutex>
#include <spdlog/sinks/base_sink.h>

namespace cvlcoreplatform {

/// Writes lines to one of the process's standard streams, whatever it is connected with at the
/// moment. Any number of threads may use it. Knows nothing of the C library's buffers for the same
/// stream.
///
/// A line that the stream took only a part of is parted from the next one by a line end. A stream
/// that takes nothing, whether it blocks or not, is waited for a second; as long as it stays full,
/// the lines that follow are not waited for.
///
/// A stream that is closed when the sink is made, or found closed later, is not used again: its
/// number may belong to any file that the host opens.
class StreamSink final : public spdlog::sinks::base_sink<std::mutex> {
public:
    explicit StreamSink(int descriptor);

    int Descriptor() const noexcept { return m_descriptor; }

private:
    /// The message is the line; no formatter has a say. Throws `std::system_error` when the line
    /// could not be written.
    void sink_it_(const spdlog::details::log_msg& msg) override;

    /// Lines are written at once.
    void flush_() override {}

    const int m_descriptor;
    bool m_isClosed;
    bool m_endsInsideLine = false;
    LineTimeout m_timeout;
};

}  // namespace cvlcoreplatform
