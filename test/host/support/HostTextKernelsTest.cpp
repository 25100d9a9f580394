// What copies sixteen characters at a time does what the plain loop does, which other processors
// run.
#include "HexDigits.h"
#include "PlainText.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <random>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace {

constexpr std::size_t longest = 70;
constexpr char untouched = '\x7F';

// A printable text without what JSON escapes, at any place in memory: `view` begins at `offset`.
template <class Character>
struct Sample {
    std::basic_string<Character> memory;
    std::size_t offset;

    Sample(std::mt19937& random, std::size_t length) : offset(random() % 16) {
        memory.resize(offset + length);
        std::generate(memory.begin(), memory.end(), [&] {
            Character unit = u' ';
            do {
                unit = static_cast<Character>(' ' + random() % ('~' - ' ' + 1));
            } while (unit == u'"' || unit == u'\\');
            return unit;
        });
    }

    std::basic_string_view<Character> View() const {
        return std::basic_string_view<Character>(memory).substr(offset);
    }
};

// `text` is copied by both, with the same result, and neither writes behind it.
template <class Character>
void ExpectSameCopy(std::basic_string_view<Character> text) {
    std::array<char, longest + 1> blocks{};
    std::array<char, longest + 1> single{};
    blocks.fill(untouched);
    single.fill(untouched);

    const bool plain = host::CopyPlain(text, blocks.data());

    ASSERT_EQ(plain, host::CopyPlainOneByOne(text, single.data()));
    EXPECT_EQ(
        std::count(
            blocks.begin() + static_cast<std::ptrdiff_t>(text.size()), blocks.end(), untouched),
        static_cast<std::ptrdiff_t>(blocks.size() - text.size()));
    if (plain) {
        EXPECT_EQ(blocks, single);
        EXPECT_TRUE(std::equal(text.begin(), text.end(), blocks.begin()));
    }
}

template <class Character>
class HostTextKernelsTest : public testing::Test {};

using Characters = testing::Types<char, char16_t>;
TYPED_TEST_SUITE(HostTextKernelsTest, Characters);

TYPED_TEST(HostTextKernelsTest, PlainTextsOfAnyLengthAreCopiedWhole) {
    std::mt19937 random(1);
    for (std::size_t length = 0; length <= longest; ++length) {
        for (int round = 0; round < 20; ++round) {
            const Sample<TypeParam> sample(random, length);
            SCOPED_TRACE(length);

            ExpectSameCopy(sample.View());

            std::array<char, longest> to{};
            EXPECT_TRUE(host::CopyPlain(sample.View(), to.data()));
        }
    }
}

// Each of the first 512 units, at each place of texts of different lengths, and some at random.
TYPED_TEST(HostTextKernelsTest, OneCharacterOfAnotherKindIsSeenWhereverItIs) {
    constexpr unsigned every = sizeof(TypeParam) == 1 ? 256 : 512;
    std::mt19937 random(2);
    for (const std::size_t length : {1U, 7U, 8U, 9U, 15U, 16U, 17U, 31U, 32U, 33U, 70U}) {
        Sample<TypeParam> sample(random, length);
        for (std::size_t place = 0; place < length; ++place) {
            TypeParam& unit = sample.memory[sample.offset + place];
            const TypeParam before = unit;
            for (unsigned value = 0; value < every + 8; ++value) {
                unit = static_cast<TypeParam>(value < every ? value : random());
                ExpectSameCopy(sample.View());
                if (this->HasFatalFailure() || this->HasNonfatalFailure()) {
                    FAIL() << "unit " << static_cast<unsigned>(unit) << " at " << place << " of "
                           << length;
                }
            }
            unit = before;
        }
    }
}

TEST(HostHexDigitsTest, AllDigitsAtOnceAreThoseOneByOne) {
    std::mt19937 random(3);
    for (int round = 0; round < 2000; ++round) {
        std::array<unsigned char, 16> bytes{};
        std::generate(
            bytes.begin(), bytes.end(), [&] { return static_cast<unsigned char>(random()); });
        for (const bool upper : {false, true}) {
            EXPECT_EQ(host::HexDigitsOf(bytes, upper), host::HexDigitsOneByOne(bytes, upper));
        }
    }
}

}  // namespace
