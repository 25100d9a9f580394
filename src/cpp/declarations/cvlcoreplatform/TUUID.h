#pragma once

#include "cvlcoreplatform/Export.h"
#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

#include <array>

enum class TUUIDFormatOption : int32 {
    Digits = 0,           ///< 32 lower-case digits
    Braces = 1,           ///< lower case, 8-4-4-4-12, in braces
    LowerHyphenated = 2,  ///< lower case, 8-4-4-4-12
    UpperHyphenated = 3,  ///< upper case, 8-4-4-4-12: the form in logs and headers
};

/// A universally unique identifier of 128 bits; a value without owner. Default-built it is nil.
class CVLCOREPLATFORM_API TUUID {
public:
    constexpr TUUID() noexcept = default;

    constexpr explicit TUUID(const std::array<unsigned char, 16>& bytes) noexcept
        : m_bytes(bytes) {}

    /// Reads any of the text forms, in either letter case. Throws `std::invalid_argument` for
    /// other text.
    explicit TUUID(const TString& text);

    /// A fresh random id (version 4). Fast: each thread has its own generator, seeded by the
    /// operating system, and again in a forked child. Safe to call at any time of a thread's or
    /// the process's life.
    static TUUID CreateUUID();

    TString ToString(TUUIDFormatOption option = TUUIDFormatOption::UpperHyphenated) const;

    /// In the order in which the digits are written.
    constexpr const std::array<unsigned char, 16>& Bytes() const noexcept { return m_bytes; }

    bool IsNil() const noexcept { return m_bytes == std::array<unsigned char, 16>{}; }

    friend bool operator==(const TUUID& a, const TUUID& b) noexcept {
        return a.m_bytes == b.m_bytes;
    }

    friend bool operator!=(const TUUID& a, const TUUID& b) noexcept { return !(a == b); }

    friend bool operator<(const TUUID& a, const TUUID& b) noexcept { return a.m_bytes < b.m_bytes; }

private:
    std::array<unsigned char, 16> m_bytes{};
};
