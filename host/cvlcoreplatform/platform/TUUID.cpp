#include "cvlcoreplatform/TUUID.h"

#include "HexDigits.h"
#include "ThreadObject.h"
#include "UuidText.h"

#include "cvlsys/host/ForkOrder.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid.hpp>

namespace {

// The operating system's own numbers: slow, without any state of ours.
using SystemGenerator = boost::uuids::random_generator_pure;

// A child has a copy of its parent's generators and would repeat its ids. So there is a number that
// is another one in the child, which each generator compares with the one that it was seeded under.
// The kernel wipes the page of that number in every child that gets a copy of the memory, however
// it was made. Where the kernel cannot do that, children made by `fork` are noticed all the same.
class EpochOfIds {
public:
    EpochOfIds() noexcept {
        const auto pageSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        void* const page =
            mmap(nullptr, pageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (page != MAP_FAILED && madvise(page, pageSize, MADV_WIPEONFORK) == 0) {
            m_epoch = new (page) std::atomic<uint64>{0};
        }
    }

    uint64 Get() noexcept {
        const uint64 epoch = m_epoch->load(std::memory_order_relaxed);
        return epoch != 0 ? epoch : Begin();
    }

    void End() noexcept { m_epoch->store(0, std::memory_order_relaxed); }

private:
    uint64 Begin() noexcept {
        const uint64 epoch = m_last.fetch_add(1, std::memory_order_relaxed) + 1;
        m_epoch->store(epoch, std::memory_order_relaxed);
        return epoch;
    }

    std::atomic<uint64> m_last{0};
    std::atomic<uint64> m_unwiped{0};
    std::atomic<uint64>* m_epoch = &m_unwiped;
};

EpochOfIds epochOfIds;

[[maybe_unused]] cvlsys::InForkedChild beginEpoch([] { epochOfIds.End(); });

class Generator {
public:
    Generator() { Seed(); }

    ~Generator() = default;
    Generator(const Generator&) = delete;
    Generator& operator=(const Generator&) = delete;

    std::array<unsigned char, 16> Next() {
        if (const uint64 epoch = epochOfIds.Get(); epoch != m_epoch) {
            Seed();
            m_epoch = epoch;
        }
        const std::array<uint64, 2> bits{m_engine(), m_engine()};
        std::array<unsigned char, 16> bytes{};
        static_assert(sizeof bytes == sizeof bits);
        std::memcpy(bytes.data(), bits.data(), sizeof bytes);
        // Version 4, random, of the variant that RFC 4122 defines.
        bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
        bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
        return bytes;
    }

private:
    using Engine = std::mt19937_64;

    void Seed() {
        // Two ids hold 244 random bits.
        SystemGenerator system;
        const std::array<boost::uuids::uuid, 2> entropy{system(), system()};
        std::array<std::seed_seq::result_type, sizeof entropy / sizeof(std::seed_seq::result_type)>
            words{};
        static_assert(sizeof words == sizeof entropy);
        std::memcpy(words.data(), entropy.data(), sizeof words);
        std::seed_seq sequence(words.begin(), words.end());
        m_engine.seed(sequence);
    }

    Engine m_engine;
    uint64 m_epoch = epochOfIds.Get();
};

using ThreadGenerator = cvlcoreplatform::ThreadObject<Generator>;

using cvlcoreplatform::digitsInId;
using Digits = cvlcoreplatform::HexDigits;

// In groups of 8, 4, 4, 4 and 12.
void WriteHyphenated(const Digits& digits, char* to) noexcept {
    std::memcpy(to, &digits[0], 8);
    to[8] = '-';
    std::memcpy(to + 9, &digits[8], 4);
    to[13] = '-';
    std::memcpy(to + 14, &digits[12], 4);
    to[18] = '-';
    std::memcpy(to + 19, &digits[16], 4);
    to[23] = '-';
    std::memcpy(to + 24, &digits[20], 12);
}

constexpr bool HasHyphenBefore(std::size_t byte) noexcept {
    return byte == 4 || byte == 6 || byte == 8 || byte == 10;
}

// -1 for what is no hexadecimal digit.
int HexValue(char16_t unit) noexcept {
    if (unit >= u'0' && unit <= u'9') {
        return unit - u'0';
    }
    if (unit >= u'a' && unit <= u'f') {
        return unit - u'a' + 10;
    }
    if (unit >= u'A' && unit <= u'F') {
        return unit - u'A' + 10;
    }
    return -1;
}

[[noreturn]] void ThrowMalformed(const TString& text) {
    throw std::invalid_argument("not an id: \"" + text.ToUtf8() + "\"");
}

}  // namespace

TUUID::TUUID(const TString& text) {
    std::u16string_view rest = text.View();
    const bool hyphenated = rest.size() != digitsInId;
    if (rest.size() > 2 && rest.front() == u'{' && rest.back() == u'}') {
        rest = rest.substr(1, rest.size() - 2);
    }
    constexpr std::size_t hyphens = 4;
    if (rest.size() != digitsInId + (hyphenated ? hyphens : 0)) {
        ThrowMalformed(text);
    }
    for (std::size_t byte = 0; byte < m_bytes.size(); ++byte) {
        if (hyphenated && HasHyphenBefore(byte)) {
            if (rest.front() != u'-') {
                ThrowMalformed(text);
            }
            rest.remove_prefix(1);
        }
        const int high = HexValue(rest[0]);
        const int low = HexValue(rest[1]);
        if (high < 0 || low < 0) {
            ThrowMalformed(text);
        }
        m_bytes[byte] = static_cast<unsigned char>(high * 16 + low);
        rest.remove_prefix(2);
    }
}

TUUID TUUID::CreateUUID() {
    Generator* const generator = ThreadGenerator::Get();
    if (generator != nullptr) {
        return TUUID(generator->Next());
    }
    const boost::uuids::uuid id = SystemGenerator()();
    TUUID result;
    std::copy(id.begin(), id.end(), result.m_bytes.begin());
    return result;
}

TString TUUID::ToString(TUUIDFormatOption option) const {
    const Digits digits =
        cvlcoreplatform::HexDigitsOf(m_bytes, option == TUUIDFormatOption::UpperHyphenated);
    std::array<char, 40> text{};
    std::size_t first = 0;
    std::size_t length = cvlcoreplatform::uuidTextLength;
    if (option == TUUIDFormatOption::Digits) {
        std::copy(digits.begin(), digits.end(), text.begin());
        length = digits.size();
    } else {
        text[0] = '{';
        WriteHyphenated(digits, &text[1]);
        text[1 + cvlcoreplatform::uuidTextLength] = '}';
        first = option == TUUIDFormatOption::Braces ? 0 : 1;
        length += option == TUUIDFormatOption::Braces ? 2 : 0;
    }
    // All of it, as a loop of known length is done by blocks.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): written below
    std::array<char16_t, text.size()> units;
    for (std::size_t i = 0; i < text.size(); ++i) {
        units[i] = static_cast<unsigned char>(text[i]);
    }
    return TString(std::u16string_view(&units[first], length));
}

void cvlcoreplatform::WriteUuid(const TUUID& id, char* to) noexcept {
    WriteHyphenated(HexDigitsOf(id.Bytes(), true), to);
}
