#include "cvlcoreplatform/TUUID.h"

#include "ThreadObject.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <pthread.h>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid.hpp>

namespace {

// The operating system's own numbers: slow, without any state of ours.
using SystemGenerator = boost::uuids::random_generator_pure;

class Generator {
public:
    Generator() : m_makeId(m_engine) { Seed(); }

    ~Generator() = default;
    Generator(const Generator&) = delete;
    Generator& operator=(const Generator&) = delete;

    boost::uuids::uuid Next() {
        if (m_stale) {
            Seed();
        }
        return m_makeId();
    }

    /// The next id begins a new sequence.
    void MarkStale() noexcept { m_stale = true; }

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
        m_stale = false;
    }

    Engine m_engine;
    boost::uuids::basic_random_generator<Engine> m_makeId;
    bool m_stale = false;
};

using ThreadGenerator = cvlcoreplatform::ThreadObject<Generator>;

// A forked child has a copy of its parent's generator and would repeat its ids. The thread that
// forked is the only one in the child.
void ReseedInChild() {
    if (Generator* const generator = ThreadGenerator::Peek()) {
        generator->MarkStale();
    }
}

[[maybe_unused]] const int forkHandlerRegistered = pthread_atfork(nullptr, nullptr, ReseedInChild);

constexpr std::size_t digitsInId = 32;

bool HasHyphenBefore(std::size_t byte) noexcept {
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
    const boost::uuids::uuid id = generator != nullptr ? generator->Next() : SystemGenerator()();
    TUUID result;
    std::copy(id.begin(), id.end(), result.m_bytes.begin());
    return result;
}

TString TUUID::ToString(TUUIDFormatOption option) const {
    const bool upper = option == TUUIDFormatOption::UpperHyphenated;
    const bool braces = option == TUUIDFormatOption::Braces;
    const bool hyphens = option != TUUIDFormatOption::Digits;
    const char16_t* const digits = upper ? u"0123456789ABCDEF" : u"0123456789abcdef";
    std::array<char16_t, 38> text{};
    char16_t* next = text.data();
    if (braces) {
        *next++ = u'{';
    }
    for (std::size_t byte = 0; byte < m_bytes.size(); ++byte) {
        if (hyphens && HasHyphenBefore(byte)) {
            *next++ = u'-';
        }
        *next++ = digits[m_bytes[byte] >> 4];
        *next++ = digits[m_bytes[byte] & 0xF];
    }
    if (braces) {
        *next++ = u'}';
    }
    return TString(std::u16string_view(text.data(), static_cast<std::size_t>(next - text.data())));
}
