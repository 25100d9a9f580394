#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlmetrics/ValueView.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <limits>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

namespace {

using Metrics::MetricsValue;
using Metrics::PairSpan;
using Metrics::PairView;
using Metrics::ValueView;

/// A view of something must become the value that the same thing makes.
template <class Source>
void ExpectSameValue(const Source& source) {
    const MetricsValue lent = ValueView(source).ToValue();
    const MetricsValue given(source);

    ASSERT_EQ(lent.type, given.type);
    EXPECT_EQ(lent.integer, given.integer);
    ASSERT_EQ(lent.utf8 == nullptr, given.utf8 == nullptr);
    ASSERT_EQ(lent.utf16 == nullptr, given.utf16 == nullptr);
    if (given.utf8 != nullptr) {
        EXPECT_EQ(*lent.utf8, *given.utf8);
    }
    if (given.utf16 != nullptr) {
        EXPECT_EQ(*lent.utf16, *given.utf16);
    }
}

TEST(MetricsValueViewTest, MeansWhatAValueOfTheSameMeans) {
    ExpectSameValue(true);
    ExpectSameValue(false);
    ExpectSameValue(-7);
    ExpectSameValue(std::numeric_limits<uint64>::max());
    ExpectSameValue(uint64{1} << 63);
    ExpectSameValue((uint64{1} << 63) - 1);
    ExpectSameValue(0.25F);
    ExpectSameValue(-1e300);
    ExpectSameValue(static_cast<const char*>("narrow"));
    ExpectSameValue(std::string("with a \0 in it", 14));
    ExpectSameValue(static_cast<const char16_t*>(u"wide"));
    ExpectSameValue(static_cast<const wchar_t*>(L"\U0001F600 of the platform"));
    ExpectSameValue(TString(u"shared"));
    ExpectSameValue(TString());
    ExpectSameValue(MetricsValue(12));
    ExpectSameValue(MetricsValue("narrow"));
}

TEST(MetricsValueViewTest, ANullPointerIsTheEmptyText) {
    ExpectSameValue(static_cast<const char*>(nullptr));
    ExpectSameValue(static_cast<const char16_t*>(nullptr));
    ExpectSameValue(static_cast<const wchar_t*>(nullptr));
}

TEST(MetricsValueViewTest, NoPointerMakesABool) {
    EXPECT_FALSE((std::is_constructible_v<ValueView, int*>));
    EXPECT_FALSE((std::is_constructible_v<ValueView, void*>));
    EXPECT_FALSE((std::is_constructible_v<ValueView, std::nullptr_t>));
}

TEST(MetricsValueViewTest, AStringSharesItsCharactersWithTheValue) {
    const TString text(u"a text that is too long for any small buffer");

    EXPECT_EQ(ValueView(text).ToValue().utf16, text.SharedCharacters());
}

TEST(MetricsValueViewTest, PairsBecomeAListInTheirOrder) {
    const auto listOf = [](PairSpan pairs) { return pairs.ToList(); };

    const Metrics::NameValueList list = listOf({{"rows", 12}, {u"name", true}, {"rows", 0.5}});

    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(*list[0].first.utf8, "rows");
    EXPECT_EQ(list[0].second.integer, 12);
    EXPECT_EQ(*list[1].first.utf16, u"name");
    EXPECT_TRUE(list[1].second.boolean);
    EXPECT_EQ(list[2].second.real, 0.5);
    EXPECT_TRUE(PairSpan().ToList().empty());
}

TEST(MetricsValueViewTest, APairOfValuesIsLentAsOne) {
    const Metrics::NameValuePair pair{"rows", MetricsValue(12)};

    const PairView view(pair);

    EXPECT_EQ(*view.name.ToValue().utf8, "rows");
    EXPECT_EQ(view.value.ToValue().integer, 12);
}

}  // namespace
