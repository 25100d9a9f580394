#include "read/Decompression.h"

#include <algorithm>
#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <memory>
#include <unistd.h>

namespace tarnview {

namespace {

constexpr std::size_t pieceSize = std::size_t{256} << 10;

struct Signature {
    std::string_view bytes;
    std::string_view name;
    bool isReadable;
};

constexpr Signature signatures[] = {
    {"\x1F\x8B", "gzip", true},
    {"\x28\xB5\x2F\xFD", "zstd", true},
    {std::string_view("\xFD\x37zXZ\0", 6), "xz", true},
    {"BZh", "bzip2", true},
    {"\x04\x22\x4D\x18", "lz4", true},
    {"PK\x03\x04", "zip", false},
    {"7z\xBC\xAF\x27\x1C", "7z", false},
    {"\x1F\x9D", "compress", false},
};

struct Closing {
    void operator()(archive* reader) const { archive_read_free(reader); }
};

bool WriteAll(int descriptor, const char* data, std::size_t size) {
    while (size != 0) {
        const ssize_t count = write(descriptor, data, size);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        if (count > 0) {
            data += count;
            size -= static_cast<std::size_t>(count);
        }
    }
    return true;
}

std::string ErrorOf(archive* reader) {
    const char* const text = archive_error_string(reader);
    return text == nullptr ? "broken" : text;
}

}  // namespace

std::string_view WithoutCompressedEnding(std::string_view path) {
    for (const std::string_view ending : compressedEndings) {
        if (path.size() > ending.size() && path.substr(path.size() - ending.size()) == ending) {
            return path.substr(0, path.size() - ending.size());
        }
    }
    return path;
}

std::optional<std::string_view> CompressionOf(std::string_view begin) {
    for (const Signature& signature : signatures) {
        if (begin.substr(0, signature.bytes.size()) == signature.bytes) {
            return signature.name;
        }
    }
    return std::nullopt;
}

bool IsReadable(std::string_view compression) {
    return std::any_of(std::begin(signatures), std::end(signatures), [&](const Signature& it) {
        return it.name == compression && it.isReadable;
    });
}

std::string Decompress(int input, int output) {
    const std::unique_ptr<archive, Closing> reader(archive_read_new());
    archive* const raw = reader.get();
    // Not all that the library knows: some of it would run other programs.
    archive_read_support_filter_gzip(raw);
    archive_read_support_filter_zstd(raw);
    archive_read_support_filter_xz(raw);
    archive_read_support_filter_bzip2(raw);
    archive_read_support_filter_lz4(raw);
    archive_read_support_format_raw(raw);
    archive_read_support_format_empty(raw);
    archive_entry* entry = nullptr;
    if (archive_read_open_fd(raw, input, pieceSize) != ARCHIVE_OK) {
        return ErrorOf(raw);
    }
    const int opened = archive_read_next_header(raw, &entry);
    if (opened == ARCHIVE_EOF) {
        return "";
    }
    if (opened != ARCHIVE_OK) {
        return ErrorOf(raw);
    }
    while (true) {
        const void* data = nullptr;
        std::size_t size = 0;
        la_int64_t offset = 0;
        const int result = archive_read_data_block(raw, &data, &size, &offset);
        if (result == ARCHIVE_EOF) {
            return "";
        }
        if (result != ARCHIVE_OK && result != ARCHIVE_WARN) {
            return ErrorOf(raw);
        }
        if (!WriteAll(output, static_cast<const char*>(data), size)) {
            return "";
        }
    }
}

}  // namespace tarnview
