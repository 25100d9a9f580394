#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tarnview {

/// An id as the engine has it: 16 bytes, and the text only if these do not say all of it. An id of
/// the library is a UUID in capital letters. Of any other text the 16 bytes are a hash, so that
/// equal ids are equal there, too.
struct StoredId {
    std::uint64_t halves[2] = {0, 0};
    std::string_view text;

    /// `text` points to what was given.
    static StoredId Of(std::string_view id);

    std::string Id() const;
};

/// The 16 bytes as the engine reads and writes them: "00112233-4455-6677-8899-aabbccddeeff".
std::string UuidText(const std::uint64_t (&halves)[2]);

}  // namespace tarnview
