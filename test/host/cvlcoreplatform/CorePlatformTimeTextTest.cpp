#include "TimeText.h"

#include "cvlcoreplatform/TLogEvent.h"

#include <limits>

#include <gtest/gtest.h>

namespace {

using cvlcoreplatform::FormatLocal;
using cvlcoreplatform::TimeText;

constexpr std::size_t room = 48;

void Fill(TimeText& text) {
    while (text.View().size() < room) {
        text.Append('.');
    }
}

TEST(CorePlatformTimeTextTest, ATextThatIsFullRefusesMore) {
    TimeText full;
    Fill(full);

    EXPECT_EQ(full.View().size(), room);
#ifndef NDEBUG
    EXPECT_DEATH(full.Append('.'), "m_length");
    EXPECT_DEATH(full.AppendNumber(1, 1), "m_length");
#endif
}

TEST(CorePlatformTimeTextTest, TheLongestTimesFindRoom) {
    EXPECT_LE(FormatLocal(TLog::EventTimePoint::max()).View().size(), room);
    EXPECT_LE(FormatLocal(TLog::EventTimePoint::min()).View().size(), room);
    TimeText number;

    number.AppendNumber(std::numeric_limits<unsigned>::max(), 1);

    EXPECT_EQ(number.View(), "4294967295");
}

}  // namespace
