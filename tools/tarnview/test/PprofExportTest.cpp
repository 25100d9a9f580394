#include "ExportFixture.h"
#include "WireFields.h"
#include "read/InputFiles.h"

#include <map>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

class PprofExportTest : public ExportFixture {};

std::string Decompressed(const std::string& path) {
    const InputFile input(path);
    std::string text;
    char buffer[4096];
    ssize_t count = 0;
    while ((count = read(input.Descriptor(), buffer, sizeof(buffer))) > 0) {
        text.append(buffer, static_cast<std::size_t>(count));
    }
    return text;
}

TEST_F(PprofExportTest, PprofHasTheFiguresOfEachStackTheInnermostNameFirst) {
    const std::string profile = Decompressed(Write("profile.pb.gz", Export(ExportFormat::Pprof)));

    std::vector<std::string> texts;
    std::map<std::uint64_t, std::string> names;
    std::vector<WireReader::Field> samples;
    std::vector<WireReader::Field> functions;
    for (const WireReader::Field& field : WireReader(profile).Fields()) {
        if (field.number == 6) {
            texts.push_back(field.text);
        } else if (field.number == 2) {
            samples.push_back(field);
        } else if (field.number == 5) {
            functions.push_back(field);
        }
    }
    for (const WireReader::Field& function : functions) {
        const auto fields = WireReader(function.text).Fields();
        names[fields[0].value] = texts[fields[1].value];
    }
    std::map<std::string, std::vector<std::uint64_t>> stacks;
    for (const WireReader::Field& sample : samples) {
        const auto fields = WireReader(sample.text).Fields();
        std::string stack;
        for (const std::uint64_t location : WireReader(fields[0].text).Numbers()) {
            stack += (stack.empty() ? "" : " < ") + names[location];
        }
        stacks[stack] = WireReader(fields[1].text).Numbers();
    }

    EXPECT_EQ(texts[0], "");
    EXPECT_THAT(stacks["lookup < stock < ask < order"],
                ElementsAre(1U, 20'000'000U, 500'000U, 70U));
    EXPECT_THAT(stacks["price < order"], ElementsAre(1U, 20'000'000U, 2'000'000U, 200U));
    EXPECT_THAT(stacks["sweep"], ElementsAre(1U, 0U, 0U, 0U)) << "it never ended";
    EXPECT_THAT(stacks, SizeIs(8));
}

TEST_F(PprofExportTest, TheSameLogMakesTheSameProfile) {
    const std::string first = Export(ExportFormat::Pprof);

    EXPECT_EQ(Export(ExportFormat::Pprof), first + first);
    EXPECT_EQ(first.substr(4, 4), std::string(4, '\0')) << "no time of its making";
}

}  // namespace
}  // namespace tarnview
