#include "ChildProcess.h"

#include "cvlcoreplatform/TUUID.h"

#include <array>
#include <csignal>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr TUUID sample(std::array<unsigned char, 16>{0x01,
                                                     0x23,
                                                     0x45,
                                                     0x67,
                                                     0x89,
                                                     0xAB,
                                                     0xCD,
                                                     0xEF,
                                                     0xFE,
                                                     0xDC,
                                                     0xBA,
                                                     0x98,
                                                     0x76,
                                                     0x54,
                                                     0x32,
                                                     0x10});

TEST(CorePlatformUuidTest, TheFourTextForms) {
    EXPECT_EQ(sample.ToString(TUUIDFormatOption::Digits),
              TString(u"0123456789abcdeffedcba9876543210"));
    EXPECT_EQ(sample.ToString(TUUIDFormatOption::Braces),
              TString(u"{01234567-89ab-cdef-fedc-ba9876543210}"));
    EXPECT_EQ(sample.ToString(TUUIDFormatOption::LowerHyphenated),
              TString(u"01234567-89ab-cdef-fedc-ba9876543210"));
    EXPECT_EQ(sample.ToString(TUUIDFormatOption::UpperHyphenated),
              TString(u"01234567-89AB-CDEF-FEDC-BA9876543210"));
    EXPECT_EQ(sample.ToString(), sample.ToString(static_cast<TUUIDFormatOption>(3)));
}

TEST(CorePlatformUuidTest, EveryTextFormIsReadInEitherCase) {
    for (const char16_t* text : {u"0123456789abcdeffedcba9876543210",
                                 u"0123456789ABCDEFFEDCBA9876543210",
                                 u"{01234567-89ab-cdef-fedc-ba9876543210}",
                                 u"{01234567-89AB-cdef-fedc-BA9876543210}",
                                 u"01234567-89ab-cdef-fedc-ba9876543210",
                                 u"01234567-89AB-CDEF-FEDC-BA9876543210"}) {
        EXPECT_EQ(TUUID(TString(text)), sample) << TString(text).ToUtf8();
    }
}

TEST(CorePlatformUuidTest, AnyOtherTextIsRefused) {
    for (const char16_t* text : {u"",
                                 u"-",
                                 u"{}",
                                 u"0123456789abcdeffedcba987654321",
                                 u"0123456789abcdeffedcba98765432100",
                                 u"0123456789abcdeffedcba987654321g",
                                 u"{0123456789abcdeffedcba9876543210}",
                                 u"{01234567-89ab-cdef-fedc-ba9876543210",
                                 u"01234567-89ab-cdef-fedc-ba9876543210}",
                                 u"0123456789ab-cdef-fedc-ba98-76543210",
                                 u"01234567-89ab-cdef-fedcba98-76543210",
                                 u"01234567_89ab_cdef_fedc_ba9876543210",
                                 u" 1234567-89ab-cdef-fedc-ba9876543210",
                                 u"\uFF11123456789abcdeffedcba987654321"}) {
        EXPECT_THROW(TUUID{TString(text)}, std::invalid_argument) << TString(text).ToUtf8();
    }
}

TEST(CorePlatformUuidTest, TheRefusalShowsTheText) {
    try {
        TUUID{TString(u"k\u00E4se")};
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "not an id: \"k\xC3\xA4se\"");
    }
}

TEST(CorePlatformUuidTest, ADefaultBuiltIdIsNil) {
    EXPECT_TRUE(TUUID().IsNil());
    EXPECT_FALSE(sample.IsNil());
    EXPECT_EQ(TUUID().ToString(), TString(u"00000000-0000-0000-0000-000000000000"));
    EXPECT_EQ(TUUID(), TUUID(TString(u"00000000-0000-0000-0000-000000000000")));
}

TEST(CorePlatformUuidTest, IdsAreOrderedLikeTheirDigits) {
    EXPECT_LT(TUUID(), sample);
    EXPECT_FALSE(sample < sample);
    EXPECT_NE(TUUID(), sample);
}

TEST(CorePlatformUuidTest, FreshIdsSayThatTheyAreRandom) {
    for (int i = 0; i < 1000; ++i) {
        const TUUID id = TUUID::CreateUUID();

        ASSERT_EQ(id.Bytes()[6] >> 4, 4) << "version";
        ASSERT_EQ(id.Bytes()[8] >> 6, 2) << "variant";
        ASSERT_EQ(TUUID(id.ToString()), id);
    }
}

TEST(CorePlatformUuidTest, EveryOtherBitOfFreshIdsVaries) {
    std::array<int, 128> ones{};
    constexpr int count = 4000;

    for (int i = 0; i < count; ++i) {
        const TUUID id = TUUID::CreateUUID();
        for (std::size_t bit = 0; bit < ones.size(); ++bit) {
            ones[bit] += id.Bytes()[bit / 8] >> (7 - bit % 8) & 1;
        }
    }

    for (std::size_t bit = 0; bit < ones.size(); ++bit) {
        const bool isFixed = (bit >= 48 && bit < 52) || bit == 64 || bit == 65;
        if (!isFixed) {
            // More than twelve standard deviations off: never by chance.
            EXPECT_NEAR(ones[bit], count / 2, 400) << "bit " << bit;
        }
    }
}

TEST(CorePlatformUuidTest, IdsOfManyThreadsAreAllDifferent) {
    constexpr std::size_t threadCount = 8;
    constexpr std::size_t each = 5000;
    std::vector<std::vector<TUUID>> made(threadCount);
    std::vector<std::thread> threads;

    for (std::vector<TUUID>& ids : made) {
        threads.emplace_back([&ids] {
            for (std::size_t i = 0; i < each; ++i) {
                ids.push_back(TUUID::CreateUUID());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    std::set<TUUID> all;
    for (const std::vector<TUUID>& ids : made) {
        all.insert(ids.begin(), ids.end());
    }
    EXPECT_EQ(all.size(), threadCount * each);
}

TEST(CorePlatformUuidTest, AForkedChildDoesNotRepeatItsParentsIds) {
    constexpr std::size_t count = 16;
    static_cast<void>(TUUID::CreateUUID());
    int channel[2];
    ASSERT_EQ(pipe(channel), 0);

    // Two children, which must not repeat each other either.
    std::set<TUUID> all;
    for (int child = 0; child < 2; ++child) {
        std::array<TUUID, count> ids;
        EXPECT_TRUE(tarn::test::SucceedsInChild([&] {
            for (TUUID& id : ids) {
                id = TUUID::CreateUUID();
            }
            return write(channel[1], ids.data(), sizeof ids) == static_cast<ssize_t>(sizeof ids);
        }));
        ASSERT_EQ(read(channel[0], static_cast<void*>(ids.data()), sizeof ids),
                  static_cast<ssize_t>(sizeof ids));
        all.insert(ids.begin(), ids.end());
    }
    for (std::size_t i = 0; i < count; ++i) {
        all.insert(TUUID::CreateUUID());
    }
    close(channel[0]);
    close(channel[1]);

    EXPECT_EQ(all.size(), 3 * count);
}

// Without the handlers that `fork` calls.
TEST(CorePlatformUuidTest, NorDoesOneThatWasMadeByABareSystemCall) {
    constexpr std::size_t count = 16;

    struct Ids {
        std::array<TUUID, count> ids;
    };

    void* const page =
        mmap(nullptr, sizeof(Ids), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(page, MAP_FAILED);
    Ids& childs = *new (page) Ids;
    static_cast<void>(TUUID::CreateUUID());

    std::set<TUUID> all;
    for (const bool isClone : {false, true}) {
        const pid_t child =
            isClone ? static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0)) : _Fork();
        if (child == 0) {
            for (TUUID& id : childs.ids) {
                id = TUUID::CreateUUID();
            }
            _exit(0);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        all.insert(childs.ids.begin(), childs.ids.end());
    }
    for (std::size_t i = 0; i < count; ++i) {
        all.insert(TUUID::CreateUUID());
    }
    munmap(page, sizeof(Ids));

    EXPECT_EQ(all.size(), 3 * count);
}

// Makes an id when its thread is torn down, later than everything that was made after it.
struct MakesIdLate {
    explicit MakesIdLate(TUUID& target) : id(target) {}

    ~MakesIdLate() { id = TUUID::CreateUUID(); }

    TUUID& id;
};

TEST(CorePlatformUuidTest, IdsCanBeMadeWhileTheThreadIsTornDown) {
    TUUID early;
    TUUID late;

    std::thread([&] {
        thread_local const MakesIdLate last(late);
        static_cast<void>(last);
        early = TUUID::CreateUUID();
    }).join();

    EXPECT_FALSE(late.IsNil());
    EXPECT_EQ(late.Bytes()[6] >> 4, 4);
    EXPECT_NE(late, early);
}

}  // namespace
