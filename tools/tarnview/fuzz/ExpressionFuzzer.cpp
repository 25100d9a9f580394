// Shows the reader of conditions a text of arbitrary bytes, and asks what it understands of
// activities.

#include "expression/Expression.h"
#include "output/ExpressionText.h"

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

namespace {

using namespace tarnview;

void Require(bool holds, std::string_view what) {
    if (!holds) {
        std::cerr << "does not hold: " << what << '\n';
        std::abort();
    }
}

// One with everything, and one that never ended and has broken tables.
const Activity* Activities() {
    static const Activity activities[2] = {
        [] {
            Activity activity;
            activity.id = "A1";
            activity.name = "load";
            activity.user = "ada";
            activity.hasBegin = activity.hasEnd = true;
            activity.begin = 1'772'359'200'000'000;
            activity.end = activity.begin + 12'345;
            activity.elapsed = 0.012;
            activity.result = "exception";
            activity.figures.hasCpu = activity.figures.hasAllocated = true;
            activity.resultDetails = R"({"msg":"disk \"a\" is full","type":"DiskFull"})";
            activity.attributes = R"({"tenant":"north"})";
            activity.beginBody = R"({"shard":3,"big":9007199254740993,"deep":{"a":[1,2]}})";
            activity.endBody = R"({"rows":"17","hit":true,"none":null,"ratio":1.5e300})";
            return activity;
        }(),
        [] {
            Activity activity;
            activity.hasBegin = true;
            activity.begin = -5;
            activity.attributes = "{\"tenant\":";
            activity.beginBody = "[]";
            return activity;
        }()};
    return activities;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        const Expression condition(text);
        const Expression opposite("not (" + text + "\n)");
        for (int number = 0; number < 2; ++number) {
            const Activity& activity = Activities()[number];
            Require(condition.Matches(activity) != opposite.Matches(activity),
                    "a condition or its opposite");
        }
        Require(condition.NeedsTables() == opposite.NeedsTables(), "both need the same");
    } catch (const ExpressionError& error) {
        Require(error.Position() <= size + 5, "the error is in the text");
        Require(!Describe(error, text).empty(), "the error says something");
    }
    return 0;
}
