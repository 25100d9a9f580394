#include "ExportFixture.h"

namespace tarnview {

std::string ExportFixture::Export(ExportFormat format, std::vector<std::string> files) {
    ExportOptions options;
    options.input.files = std::move(files);
    options.format = format;
    EXPECT_EQ(RunExport(options, Streams()), exitSuccess);
    return Output();
}

std::string ExportFixture::Crossing() {
    return Write("cross.log",
                 {{.name = "one", .id = "A"},
                  {.name = "two", .id = "B", .milliseconds = 5},
                  {.phase = "end", .name = "one", .id = "A", .milliseconds = 10, .elapsed = 10},
                  {.phase = "end", .name = "two", .id = "B", .milliseconds = 20, .elapsed = 15}});
}

std::string ExportFixture::Chain() {
    std::string text;
    for (const char* const phase : {"begin", "end"}) {
        for (int level = 0; level < levels; ++level) {
            LineText line{.phase = phase, .name = "n", .id = std::to_string(level)};
            line.root = "0";
            line.depth = level;
            line.sponsor = level == 0 ? "" : std::to_string(level - 1);
            line.resources = R"({"alloc":{"ae":10,"ai":10}})";
            text += line.ToString() + "\n";
        }
    }
    return Write("chain.log", text);
}

const ExportFixture::Json& ExportFixture::Find(const Json& list,
                                               const std::string& key,
                                               const std::string& value) {
    for (const Json& item : list) {
        if (item[key] == value) {
            return item;
        }
    }
    ADD_FAILURE() << "there is no " << value;
    static const Json nothing;
    return nothing;
}

}  // namespace tarnview
