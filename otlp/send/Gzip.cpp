#include "send/Gzip.h"

#include <new>
#include <zlib.h>

namespace tarn::otlp {

std::string Compress(std::string_view text) {
    constexpr int windowOfGzip = 15 + 16;
    constexpr int usualMemory = 8;
    z_stream stream{};
    if (deflateInit2(
            &stream, Z_BEST_SPEED, Z_DEFLATED, windowOfGzip, usualMemory, Z_DEFAULT_STRATEGY) !=
        Z_OK) {
        throw std::bad_alloc();
    }
    // Room for the worst case, so that one call does all. Requests are far below 4 GiB.
    std::string out(deflateBound(&stream, static_cast<uLong>(text.size())), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    const int result = deflate(&stream, Z_FINISH);
    out.resize(out.size() - stream.avail_out);
    deflateEnd(&stream);
    if (result != Z_STREAM_END) {
        throw std::bad_alloc();
    }
    return out;
}

}  // namespace tarn::otlp
