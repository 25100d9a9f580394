#include "ExportFixture.h"
#include "export/Exports.h"

#include <algorithm>
#include <sstream>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

class FoldedExportTest : public ExportFixture {};

TEST_F(FoldedExportTest, FoldedStacksHaveTheTimesInWhichNoChildRan) {
    EXPECT_EQ(Export(ExportFormat::Folded),
              "order 20000\n"
              "order;ask 20000\n"
              "order;ask;stock 10000\n"
              "order;ask;stock;lookup 20000\n"
              "order;audit 40000\n"
              "order;price 20000\n"
              "refund 5000\n");
}

TEST_F(FoldedExportTest, ASemicolonInANameDoesNotPartTheStack) {
    EXPECT_EQ(Export(ExportFormat::Folded,
                     {Write("a.log",
                            {{.name = "a;b", .id = "A"},
                             {.phase = "end",
                              .name = "a;b",
                              .id = "A",
                              .milliseconds = 1,
                              .elapsed = 1,
                              .exclusive = 1}})}),
              "a_b 1000\n");
}

TEST_F(FoldedExportTest, FiguresThatNothingCanHaveAreCutAndDoNotOverflow) {
    const std::string resources = R"({"alloc":{"ae":1e300,"ai":1e300}})";
    ExportOptions options;
    options.input.files = {
        Write("a.log",
              {{.name = "n", .id = "A"},
               {.phase = "end", .name = "n", .id = "A", .resources = resources},
               {.name = "n", .id = "B"},
               {.phase = "end", .name = "n", .id = "B", .resources = resources}})};
    options.format = ExportFormat::Folded;
    options.weight = FoldedWeight::Memory;

    EXPECT_EQ(RunExport(options, Streams()), exitSuccess);
    EXPECT_EQ(Output(), "n 2000000000000000\n");
}

// Written whole, the stacks of a chain would take the square of its length.
TEST_F(FoldedExportTest, AVeryDeepStackIsCut) {
    ExportOptions options;
    options.input.files = {Chain()};
    options.format = ExportFormat::Folded;
    options.weight = FoldedWeight::Memory;

    ASSERT_EQ(RunExport(options, Streams()), exitSuccess);

    std::istringstream lines(Output());
    std::size_t longest = 0;
    long long total = 0;
    for (std::string stack, bytes; lines >> stack >> bytes;) {
        longest = std::max(longest, stack.size());
        total += std::stoll(bytes);
    }
    EXPECT_EQ(longest, 2 * deepestStack - 1) << "names and semicolons";
    EXPECT_EQ(total, 10 * levels) << "what is deeper counts all the same";
}

}  // namespace
}  // namespace tarnview
