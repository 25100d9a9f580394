// Shows the reader, and all that is built on it, a log of arbitrary bytes.

#include "export/Exports.h"
#include "model/ActivityForest.h"
#include "model/FiguresCheck.h"
#include "model/Joiner.h"
#include "output/TreePrinter.h"
#include "read/LineParser.h"
#include "read/LineReader.h"
#include "read/LogScanner.h"

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using namespace tarnview;

void Require(bool holds, const char* what) {
    if (!holds) {
        std::cerr << "does not hold: " << what << '\n';
        std::abort();
    }
}

struct Counts {
    std::uint64_t begins = 0;
    std::uint64_t ends = 0;
};

// Every begin and every end is in exactly one activity.
Counts ReadAll(int descriptor, Problems& problems, ActivityForest& forest) {
    LineParser parser({.wantsTables = true});
    LineReader reader(descriptor, 1U << 16U);
    LineExaminer examiner(&problems);
    FiguresCheck figures(problems);
    Counts lines;
    Counts joined;
    Joiner joiner(problems, [&](Activity&& activity) {
        joined.begins += activity.hasBegin && !activity.isForked ? 1U : 0U;
        joined.ends += activity.hasEnd ? 1U : 0U;
        forest.Add(std::move(activity));
    });
    for (auto result = reader.Next(); result != LineReader::Result::End || reader.TakeRest();
         result = reader.Next()) {
        const Place place{"log", reader.Number()};
        const ParsedLine parsed = ParseLine(parser, reader.Text(), place.line);
        const LogLine* const line = examiner.Examine(parsed, place);
        if (result != LineReader::Result::LongLine && line != nullptr) {
            lines.begins += line->kind == LineKind::Begin ? 1U : 0U;
            lines.ends += line->kind == LineKind::End ? 1U : 0U;
            joiner.Take(*line, place);
            figures.Take(*line, place);
        }
    }
    joiner.Finish();
    Require(lines.begins == joined.begins, "each begin is in one activity");
    Require(lines.ends == joined.ends, "each end is in one activity");
    return lines;
}

void ShowAll(const ActivityForest& forest) {
    std::ostringstream out;
    const TimeStyle times;
    TreePrinter printer(out, {}, times, {.depth = 0, .showsAttributes = true});
    std::size_t shown = 0;
    for (const ActivityForest::Index top : forest.Tops()) {
        shown += forest.PreOrder(top).size();
        printer.Print(forest, top);
    }
    Require(shown == forest.Size(), "each activity is in one tree");
    ExportChrome(forest, out);
    ExportPerfetto(forest, out);
    ExportSpeedscope(forest, out);
    ExportOtlp(forest, "", out);
    ExportFolded(forest, FoldedWeight::Time, out);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const int descriptor = memfd_create("log", MFD_CLOEXEC);
    Require(write(descriptor, data, size) == static_cast<ssize_t>(size), "memory for the log");
    lseek(descriptor, 0, SEEK_SET);
    std::ostringstream errors;
    Problems problems(errors);
    ActivityForest forest;
    ReadAll(descriptor, problems, forest);
    close(descriptor);
    forest.Link(problems);
    ShowAll(forest);
    return 0;
}
