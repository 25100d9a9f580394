#include "StaticCharacters.h"

#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace {

using Shared = std::shared_ptr<const std::u16string>;

const std::u16string text = u"name";

TEST(HostStaticTextTest, APointerToAStaticTextIsToldFromOneThatOwnsItsText) {
    const Shared referring = host::ReferToStatic(&text);
    const Shared owning = std::make_shared<const std::u16string>(text);

    EXPECT_TRUE(host::IsStatic(referring));
    EXPECT_EQ(referring.get(), &text);
    EXPECT_FALSE(host::IsStatic(owning));
    EXPECT_FALSE(host::IsStaticOrNull(owning));
}

TEST(HostStaticTextTest, NoTextIsNotAStaticOneThoughItNeedsNoCountEither) {
    EXPECT_FALSE(host::IsStatic(Shared()));
    EXPECT_TRUE(host::IsStaticOrNull(Shared()));
}

TEST(HostStaticTextTest, AnOwnedTextAtTheSameAddressIsNotTheStaticOne) {
    const auto owned = std::make_shared<const std::u16string>(text);

    EXPECT_FALSE(host::IsStatic(owned, owned.get()));
    EXPECT_TRUE(host::IsStatic(host::ReferToStatic(owned.get()), owned.get()));
    EXPECT_FALSE(host::IsStatic(host::ReferToStatic(owned.get()), &text));
}

}  // namespace
