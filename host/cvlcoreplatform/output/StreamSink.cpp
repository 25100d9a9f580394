#include "StreamSink.h"

#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <system_error>

namespace cvlcoreplatform {

StreamSink::StreamSink(int descriptor)
    : m_descriptor(descriptor),
      m_isClosed(fcntl(descriptor, F_GETFD) < 0) {}

void StreamSink::sink_it_(const spdlog::details::log_msg& msg) {
    if (m_isClosed) {
        throw std::system_error(EBADF, std::generic_category());
    }
    const LineResult result = WriteLine(m_descriptor,
                                        OutputKind::Stream,
                                        std::string_view(msg.payload.data(), msg.payload.size()),
                                        m_endsInsideLine,
                                        m_timeout.Get());
    m_timeout.See(result);
    m_endsInsideLine = result.endsInsideLine;
    m_isClosed = result.error == EBADF;
    if (result.error != 0) {
        throw std::system_error(result.error, std::generic_category());
    }
}

}  // namespace cvlcoreplatform
