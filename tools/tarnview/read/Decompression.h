#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tarnview {

/// How many bytes at the beginning of a file tell whether it is compressed.
inline constexpr std::size_t signatureLength = 6;

/// The endings of names that compressed files have, the dot included.
inline constexpr std::string_view compressedEndings[] = {".gz", ".zst", ".xz", ".bz2", ".lz4"};

/// A path without the ending of a compressed file, if it has one.
std::string_view WithoutCompressedEnding(std::string_view path);

/// What a file is compressed with, if its first bytes say that it is.
std::optional<std::string_view> CompressionOf(std::string_view begin);

/// Of the kinds that CompressionOf() names, those that are read.
bool IsReadable(std::string_view compression);

/// Decompresses what `input` yields, also of several parts one after the other, as gzip and zstd
/// files may have; what is not compressed passes as it is. Writes to `output` until the end or
/// until nobody reads it any more; returns what is wrong with the input, empty if nothing is. Takes
/// some MiB of memory, for xz and zstd as much as the file was compressed with. Both descriptors
/// belong to the caller.
std::string Decompress(int input, int output);

}  // namespace tarnview
