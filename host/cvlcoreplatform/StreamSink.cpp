#include "StreamSink.h"

#include "LineOutput.h"

#include <cerrno>
#include <chrono>
#include <string_view>
#include <system_error>

namespace cvlcoreplatform {

StreamSink::StreamSink(int descriptor) : m_descriptor(descriptor) {}

void StreamSink::sink_it_(const spdlog::details::log_msg& msg) {
    constexpr std::chrono::milliseconds patience{1000};
    const LineResult result = WriteLine(m_descriptor,
                                        OutputKind::Stream,
                                        std::string_view(msg.payload.data(), msg.payload.size()),
                                        m_endsInsideLine,
                                        m_isStuck ? std::chrono::milliseconds{0} : patience);
    m_isStuck = result.error == EAGAIN;
    if (result.error == 0) {
        m_endsInsideLine = false;
        return;
    }
    // What was begun before and got no line end yet is still open.
    const bool tookLineEndOnly = m_endsInsideLine && result.written == 1;
    m_endsInsideLine = (m_endsInsideLine || result.written != 0) && !tookLineEndOnly;
    throw std::system_error(result.error, std::generic_category());
}

}  // namespace cvlcoreplatform
