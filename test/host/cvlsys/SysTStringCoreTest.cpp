#include "cvlsys/TStringCore.h"

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <unordered_set>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;

constexpr auto insensitive = TStringCore::CaseSensitivity::Insensitive;
constexpr auto sensitive = TStringCore::CaseSensitivity::Sensitive;

std::vector<std::string> Tokens(const TStringCore& text, const TStringCore& separator) {
    std::vector<std::string> tokens;
    for (std::size_t position = 0; position != TStringCore::npos;) {
        tokens.push_back(text.tokenize(separator, position).ToUtf8());
    }
    return tokens;
}

TEST(SysTStringCoreTest, TheEmptyStringHasNoCharactersAndStillATerminatedText) {
    const TStringCore empty;

    EXPECT_TRUE(empty.IsEmpty());
    EXPECT_EQ(empty.Length(), 0u);
    EXPECT_EQ(empty.Data()[0], u'\0');
    EXPECT_EQ(empty.SharedCharacters(), nullptr);
    EXPECT_EQ(empty.ToUtf8(), "");
}

TEST(SysTStringCoreTest, NullAndEmptyTextsOfAnyKindGiveTheEmptyString) {
    EXPECT_EQ(TStringCore(static_cast<const char16_t*>(nullptr)), TStringCore());
    EXPECT_EQ(TStringCore(static_cast<const wchar_t*>(nullptr)), TStringCore());
    EXPECT_EQ(TStringCore(static_cast<const char*>(nullptr)), TStringCore());
    EXPECT_EQ(TStringCore(TStringCore::Characters()), TStringCore());
    EXPECT_EQ(TStringCore(u""), TStringCore());
    EXPECT_EQ(TStringCore(L""), TStringCore());
    EXPECT_EQ(TStringCore(""), TStringCore());
    EXPECT_EQ(TStringCore(u"").SharedCharacters(), nullptr);
}

TEST(SysTStringCoreTest, ACopySharesTheCharacters) {
    const TStringCore text(u"a text that is too long for any small buffer");

    const TStringCore copy = text;

    EXPECT_EQ(copy.Data(), text.Data());
    EXPECT_EQ(copy.SharedCharacters(), text.SharedCharacters());
}

TEST(SysTStringCoreTest, AMovedFromStringIsEmpty) {
    TStringCore text(u"text");

    const TStringCore taken = std::move(text);

    EXPECT_EQ(taken, TStringCore(u"text"));
    EXPECT_TRUE(text.IsEmpty());  // NOLINT(bugprone-use-after-move): that is the promise
}

TEST(SysTStringCoreTest, CharactersOfSomebodyElseAreSharedNotCopied) {
    const auto characters = std::make_shared<const std::u16string>(u"shared");

    const TStringCore text(characters);

    EXPECT_EQ(text.SharedCharacters(), characters);
    EXPECT_EQ(text.Data(), characters->data());
}

TEST(SysTStringCoreTest, EmptyCharactersOfSomebodyElseAreAnEmptyString) {
    const TStringCore text(std::make_shared<const std::u16string>());

    EXPECT_TRUE(text.IsEmpty());
    EXPECT_EQ(text, TStringCore());
    EXPECT_EQ(std::hash<TStringCore>()(text), std::hash<TStringCore>()(TStringCore()));
}

TEST(SysTStringCoreTest, ATextMayHoldNulCharacters) {
    const TStringCore text(std::u16string_view(u"a\0b", 3));

    EXPECT_EQ(text.Length(), 3u);
    EXPECT_EQ(text.ToUtf8(), std::string("a\0b", 3));
    EXPECT_NE(text, TStringCore(u"a"));
}

TEST(SysTStringCoreTest, WideTextIsTranscodedFromTheEncodingOfThePlatform) {
    const TStringCore text(L"a\u00E4\u20AC\U0001F600");

    EXPECT_EQ(text, TStringCore(u"a\u00E4\u20AC\U0001F600"));
    EXPECT_EQ(text.Length(), 5u);
}

TEST(SysTStringCoreTest, WideValuesThatAreNoCharactersAreReplacedAndSurrogatesKept) {
    if constexpr (sizeof(wchar_t) == 4) {
        const wchar_t wide[] = {static_cast<wchar_t>(0x110000),
                                static_cast<wchar_t>(0xFFFFFFFF),
                                static_cast<wchar_t>(0xD800),
                                static_cast<wchar_t>(0xDFFF),
                                static_cast<wchar_t>(0xFFFF),
                                L'z',
                                0};

        const TStringCore text(wide);

        EXPECT_EQ(text.View(), (std::u16string{0xFFFD, 0xFFFD, 0xD800, 0xDFFF, 0xFFFF, u'z'}));
    }
}

TEST(SysTStringCoreTest, StringsAreOrderedByCodeUnitsNotByCharacters) {
    // U+FF5E is below U+1F600, but its unit is above the surrogates.
    const TStringCore tilde(u"\uFF5E");
    const TStringCore face(u"\U0001F600");

    EXPECT_LT(face, tilde);
    EXPECT_GT(tilde, face);
    EXPECT_LE(face, face);
    EXPECT_GE(face, face);
    EXPECT_LT(TStringCore(u"Z"), TStringCore(u"a"));
    EXPECT_LT(TStringCore(u"a"), TStringCore(u"aa"));
    EXPECT_LT(TStringCore(), TStringCore(u"a"));
}

TEST(SysTStringCoreTest, EqualTextsAreEqualWhoeverOwnsTheirCharacters) {
    EXPECT_EQ(TStringCore(u"text"), TStringCore("text"));
    EXPECT_NE(TStringCore(u"text"), TStringCore(u"Text"));
    EXPECT_NE(TStringCore(u"text"), TStringCore(u"texts"));
}

TEST(SysTStringCoreTest, JoiningKeepsBothTextsInOrder) {
    EXPECT_EQ(TStringCore(u"begin-") + TStringCore(u"query"), TStringCore(u"begin-query"));
    EXPECT_EQ(TStringCore() + TStringCore(), TStringCore());
}

TEST(SysTStringCoreTest, JoiningWithNothingSharesTheOtherText) {
    const TStringCore text(u"text");

    EXPECT_EQ((text + TStringCore()).SharedCharacters(), text.SharedCharacters());
    EXPECT_EQ((TStringCore() + text).SharedCharacters(), text.SharedCharacters());
}

TEST(SysTStringCoreTest, StartsWithComparesTheWholePrefix) {
    const TStringCore text(u"/bootstrap/session");

    EXPECT_TRUE(text.startsWith(TStringCore(u"/bootstrap"), sensitive));
    EXPECT_TRUE(text.startsWith(text, sensitive));
    EXPECT_TRUE(text.startsWith(TStringCore(), sensitive));
    EXPECT_FALSE(text.startsWith(TStringCore(u"/Bootstrap"), sensitive));
    EXPECT_FALSE(text.startsWith(text + TStringCore(u"s"), sensitive));
    EXPECT_FALSE(TStringCore().startsWith(text, sensitive));
}

TEST(SysTStringCoreTest, StartsWithoutCaseTakesAsciiLettersAsEqualAndNothingElse) {
    EXPECT_TRUE(TStringCore(u"HELLO[").startsWith(TStringCore(u"hello["), insensitive));
    EXPECT_TRUE(TStringCore(u"azAZ").startsWith(TStringCore(u"AZaz"), insensitive));
    EXPECT_FALSE(TStringCore(u"@").startsWith(TStringCore(u"`"), insensitive));
    EXPECT_FALSE(TStringCore(u"[").startsWith(TStringCore(u"{"), insensitive));
    EXPECT_FALSE(TStringCore(u"\u00C4").startsWith(TStringCore(u"\u00E4"), insensitive));
    EXPECT_FALSE(TStringCore(u"he").startsWith(TStringCore(u"hello"), insensitive));
}

TEST(SysTStringCoreTest, TokensAreWhatStandsBetweenTheSeparators) {
    EXPECT_THAT(Tokens(u"a,b,c", u","), ElementsAre("a", "b", "c"));
    EXPECT_THAT(Tokens(u"abc", u","), ElementsAre("abc"));
}

TEST(SysTStringCoreTest, AdjacentLeadingAndTrailingSeparatorsGiveEmptyTokens) {
    EXPECT_THAT(Tokens(u"a,,b", u","), ElementsAre("a", "", "b"));
    EXPECT_THAT(Tokens(u",a", u","), ElementsAre("", "a"));
    EXPECT_THAT(Tokens(u"a,", u","), ElementsAre("a", ""));
    EXPECT_THAT(Tokens(u",", u","), ElementsAre("", ""));
    EXPECT_THAT(Tokens(u"", u","), ElementsAre(""));
}

TEST(SysTStringCoreTest, TheSeparatorIsOneTextNotASetOfCharacters) {
    EXPECT_THAT(Tokens(u"a, b,c ,d", u", "), ElementsAre("a", "b,c ,d"));
    EXPECT_THAT(Tokens(u"aaab", u"aa"), ElementsAre("", "ab"));
}

TEST(SysTStringCoreTest, AnEmptySeparatorDividesNothing) {
    EXPECT_THAT(Tokens(u"abc", u""), ElementsAre("abc"));
}

TEST(SysTStringCoreTest, BehindTheEndThereAreOnlyEmptyTokens) {
    const TStringCore text(u"a");
    std::size_t position = TStringCore::npos;
    EXPECT_EQ(text.tokenize(u",", position), TStringCore());
    EXPECT_EQ(position, TStringCore::npos);

    position = 2;
    EXPECT_EQ(text.tokenize(u",", position), TStringCore());
    EXPECT_EQ(position, TStringCore::npos);
}

TEST(SysTStringCoreTest, TrimmingTakesWhiteSpaceOffBothEndsAndLeavesTheInside) {
    EXPECT_EQ(TStringCore(u" \t\r\n\v\f a b \u00A0\u3000\u2028\u0085").Trimmed(),
              TStringCore(u"a b"));
    EXPECT_EQ(TStringCore(u" \u2003 ").Trimmed(), TStringCore());
    EXPECT_EQ(TStringCore().Trimmed(), TStringCore());
}

TEST(SysTStringCoreTest, CharactersThatOnlyLookEmptyAreNotTrimmed) {
    // A zero-width space, a byte-order mark and a control character are no white space.
    const TStringCore text(u"\u200Ba\uFEFF\u0008");

    EXPECT_EQ(text.Trimmed(), text);
}

TEST(SysTStringCoreTest, TrimmingATextWithoutWhiteSpaceSharesIt) {
    const TStringCore text(u"text");

    EXPECT_EQ(text.Trimmed().SharedCharacters(), text.SharedCharacters());
}

TEST(SysTStringCoreTest, TheHashIsTakenOverTheUtf16BytesWithTheCommonSeed) {
    const std::u16string units = u"activity";

    EXPECT_EQ(std::hash<TStringCore>()(TStringCore(u"activity")),
              THash32(units.data(), units.size() * 2, 0xDEADBEEF));
    EXPECT_EQ(std::hash<TStringCore>()(TStringCore()), THash32(nullptr, 0, 0xDEADBEEF));
}

TEST(SysTStringCoreTest, StringsServeAsKeys) {
    std::unordered_set<TStringCore> names{u"one", u"two"};

    EXPECT_EQ(names.count(TStringCore("two")), 1u);
    EXPECT_EQ(names.count(TStringCore("three")), 0u);
}

// --- UTF-8 -----------------------------------------------------------------------------------

// The decoder as the encoding's definition tells it, for comparison: a lead byte claims some
// continuation bytes; unless they are all there and mean the shortest form of a character, the
// lead byte and those of them that are there are one replacement character.
std::u16string DecodeSlowly(const std::string& bytes) {
    std::u16string out;
    for (std::size_t i = 0; i < bytes.size();) {
        const auto lead = static_cast<unsigned char>(bytes[i]);
        std::size_t claimed = 0;
        char32_t point = lead;
        char32_t smallest = 0;
        bool isLead = true;
        if (lead >= 0xC2 && lead <= 0xDF) {
            claimed = 1, point = lead & 0x1Fu, smallest = 0x80;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            claimed = 2, point = lead & 0x0Fu, smallest = 0x800;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            claimed = 3, point = lead & 0x07u, smallest = 0x10000;
        } else if (lead >= 0x80) {
            isLead = false;
        }
        ++i;
        std::size_t found = 0;
        while (found < claimed && i < bytes.size() &&
               (static_cast<unsigned char>(bytes[i]) & 0xC0u) == 0x80u) {
            point = point << 6 | (static_cast<unsigned char>(bytes[i]) & 0x3Fu);
            ++i;
            ++found;
        }
        const bool good = isLead && found == claimed && point >= smallest && point <= 0x10FFFF &&
                          !(point >= 0xD800 && point <= 0xDFFF);
        if (!good) {
            point = 0xFFFD;
        }
        if (point >= 0x10000) {
            out.push_back(static_cast<char16_t>(0xD800 + ((point - 0x10000) >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
        } else {
            out.push_back(static_cast<char16_t>(point));
        }
    }
    return out;
}

TEST(SysTStringCoreTest, Utf8OfEveryLengthIsRead) {
    const std::string utf8 = "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80z";

    EXPECT_EQ(TStringCore(utf8.c_str()), TStringCore(u"a\u00E4\u20AC\U0001F600z"));
    EXPECT_EQ(TStringCore(utf8), TStringCore(u"a\u00E4\u20AC\U0001F600z"));
    EXPECT_EQ(TStringCore::FromUtf8(utf8), TStringCore(u"a\u00E4\u20AC\U0001F600z"));
}

TEST(SysTStringCoreTest, EachIllFormedSequenceBecomesOneReplacementAndSwallowsNothing) {
    const auto decoded = [](const char* utf8) { return TStringCore(utf8); };

    EXPECT_EQ(decoded("\x80"), TStringCore(u"\uFFFD")) << "a continuation without a lead";
    EXPECT_EQ(decoded("\xC3("), TStringCore(u"\uFFFD(")) << "a lead without its continuation";
    EXPECT_EQ(decoded("\xE2\x82(\""), TStringCore(u"\uFFFD(\"")) << "cut short";
    EXPECT_EQ(decoded("\xF0\x9F\x98"), TStringCore(u"\uFFFD")) << "cut short by the end";
    EXPECT_EQ(decoded("\xC3\xC3\xA4"), TStringCore(u"\uFFFD\u00E4")) << "a lead behind a lead";
    EXPECT_EQ(decoded("\xC0\xAF"), TStringCore(u"\uFFFD\uFFFD")) << "never a lead";
    EXPECT_EQ(decoded("\xE0\x80\xAF"), TStringCore(u"\uFFFD")) << "too long a form";
    EXPECT_EQ(decoded("\xED\xA0\x80"), TStringCore(u"\uFFFD")) << "a surrogate";
    EXPECT_EQ(decoded("\xF4\x90\x80\x80"), TStringCore(u"\uFFFD")) << "beyond the last character";
    EXPECT_EQ(decoded("\xFF\xFE"), TStringCore(u"\uFFFD\uFFFD")) << "never in UTF-8";
}

TEST(SysTStringCoreTest, RandomBytesAreReadAsTheEncodingsDefinitionTells) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    const std::string likely("a\"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\xED\xA0\xC0\xF4\x90", 16);

    for (int round = 0; round < 20000; ++round) {
        std::string bytes(random() % 40, '\0');
        for (char& byte : bytes) {
            byte =
                random() % 4 == 0 ? static_cast<char>(random()) : likely[random() % likely.size()];
        }

        ASSERT_EQ(TStringCore::FromUtf8(bytes).View(), DecodeSlowly(bytes))
            << testing::PrintToString(bytes);
    }
}

TEST(SysTStringCoreTest, ALoneSurrogateIsWrittenAsOneReplacementCharacter) {
    const std::string replacement = "\xEF\xBF\xBD";
    const auto utf8 = [](std::u16string text) { return TStringCore(std::move(text)).ToUtf8(); };

    EXPECT_EQ(utf8({0xD83D}), replacement);
    EXPECT_EQ(utf8({0xDE00}), replacement);
    EXPECT_EQ(utf8({0xD83D, u'"'}), replacement + "\"");
    EXPECT_EQ(utf8({0xDE00, 0xD83D}), replacement + replacement);
    EXPECT_EQ(utf8({0xD83D, 0xD83D, 0xDE00}), replacement + "\xF0\x9F\x98\x80");
    EXPECT_EQ(utf8({u'1', u'2', u'3', u'4', u'5', u'6', u'7', 0xD83D, 0xDE00}),
              "1234567\xF0\x9F\x98\x80")
        << "a pair across the boundary of a block";
}

TEST(SysTStringCoreTest, WellFormedTextSurvivesTheWayToUtf8AndBack) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);

    for (int round = 0; round < 20000; ++round) {
        std::u16string text;
        for (std::size_t length = random() % 40; length != 0; --length) {
            switch (random() % 6) {
                case 0:
                    text.push_back(static_cast<char16_t>(random() % 0xD800));
                    break;
                case 1:
                    text.push_back(static_cast<char16_t>(0xE000 + random() % 0x2000));
                    break;
                case 2:
                    text.push_back(static_cast<char16_t>(0xD800 + random() % 0x400));
                    text.push_back(static_cast<char16_t>(0xDC00 + random() % 0x400));
                    break;
                default:
                    text.push_back(static_cast<char16_t>(random() % 0x80));
            }
        }

        const std::string utf8 = TStringCore(text).ToUtf8();

        ASSERT_EQ(TStringCore::FromUtf8(utf8).View(), text) << testing::PrintToString(text);
        ASSERT_EQ(DecodeSlowly(utf8), text) << testing::PrintToString(text);
    }
}

}  // namespace
