#include "LogFixture.h"
#include "commands/CheckCommand.h"
#include "commands/TopCommand.h"
#include "commands/TreeCommand.h"

#include <archive.h>
#include <archive_entry.h>
#include <fstream>
#include <memory>
#include <sstream>
#include <system_error>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

struct Format {
    const char* ending;
    int (*add)(archive*);
};

class CompressedInputTest : public LogFixture {
protected:
    static std::string Lines(int first, int count) {
        std::string lines;
        for (int number = first; number < first + count; ++number) {
            const std::string id = "A" + std::to_string(number);
            lines += LineText{.name = "load", .id = id, .milliseconds = number}.ToString() + "\n" +
                     LineText{.phase = "end",
                              .name = "load",
                              .id = id,
                              .milliseconds = number + 5,
                              .elapsed = 5}
                         .ToString() +
                     "\n";
        }
        return lines;
    }

    static std::string Compressed(const std::string& text, int (*add)(archive*)) {
        std::string result(text.size() + 4096, '\0');
        std::size_t used = 0;
        const std::unique_ptr<archive, int (*)(archive*)> writer(archive_write_new(),
                                                                 archive_write_free);
        EXPECT_EQ(add(writer.get()), ARCHIVE_OK);
        archive_write_set_format_raw(writer.get());
        archive_write_set_bytes_in_last_block(writer.get(), 1);
        archive_write_open_memory(writer.get(), result.data(), result.size(), &used);
        archive_entry* const entry = archive_entry_new();
        archive_entry_set_filetype(entry, AE_IFREG);
        EXPECT_EQ(archive_write_header(writer.get(), entry), ARCHIVE_OK);
        archive_entry_free(entry);
        archive_write_data(writer.get(), text.data(), text.size());
        archive_write_close(writer.get());
        result.resize(used);
        return result;
    }

    static std::string Gzip(const std::string& text) {
        return Compressed(text, archive_write_add_filter_gzip);
    }

    // As "load,300".
    std::string CountOf(const std::vector<std::string>& files, int status = exitSuccess) {
        TopOptions options;
        options.input.files = files;
        options.format = TopFormat::Csv;
        const std::size_t before = Output().size();
        EXPECT_EQ(RunTop(options, Streams()), status) << Errors();
        const std::string text = Output().substr(before);
        const std::size_t row = text.find('\n') + 1;
        return text.substr(row, text.find(',', text.find(',', row) + 1) - row);
    }
};

TEST_F(CompressedInputTest, CompressedLogsAreReadLikeOthersWhateverTheirName) {
    const Format formats[] = {{".gz", archive_write_add_filter_gzip},
                              {".zst", archive_write_add_filter_zstd},
                              {".xz", archive_write_add_filter_xz},
                              {".bz2", archive_write_add_filter_bzip2},
                              {".lz4", archive_write_add_filter_lz4},
                              {"", archive_write_add_filter_gzip}};
    for (const Format& format : formats) {
        const std::string path =
            Write("log" + std::string(format.ending), Compressed(Lines(0, 300), format.add));

        EXPECT_EQ(CountOf({path}), "load,300") << path;
    }
    EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(CompressedInputTest, AFileOfSeveralPartsIsReadToItsEnd) {
    const std::string path = Write("log.gz", Gzip(Lines(0, 10)) + Gzip(Lines(10, 20)));

    EXPECT_EQ(CountOf({path}), "load,30");
}

TEST_F(CompressedInputTest, ACompressedLogIsReadTwiceIfNeeded) {
    TreeOptions options;
    options.input.files = {Write("log.gz", Gzip(Lines(0, 10)))};
    options.order = TreeOrder::Last;
    options.count = 1;

    EXPECT_EQ(RunTree(options, Streams()), exitSuccess);

    EXPECT_THAT(Output(), StartsWith("2026-03-01T10:00:00.009000Z  root A9"));
}

TEST_F(CompressedInputTest, CompressedFullFilesBelongToTheirSet) {
    const std::string current = Write("srv.log", Lines(0, 1));
    Write("srv.1.log.gz", Gzip(Lines(1, 2)));
    Write("srv.2.log.gz", Gzip(Lines(3, 4)));
    Write("old.log", Lines(20, 1));
    Write("old.log.1", Lines(21, 1));
    Write("old.log.2.gz", Gzip(Lines(22, 1)));

    EXPECT_EQ(CountOf({current}), "load,7");
    EXPECT_EQ(CountOf({PathOf("srv.1.log.gz")}), "load,2");
    EXPECT_EQ(CountOf({PathOf("old.log")}), "load,3");
}

TEST_F(CompressedInputTest, OfABrokenFileWhatIsThereIsReadAndTheRestIsTold) {
    const std::string whole = Gzip(Lines(0, 3000));
    const std::string path = Write("log.gz", whole.substr(0, whole.size() / 2));
    CheckOptions options;
    options.input.files = {path};

    EXPECT_EQ(RunCheck(options, Streams()), exitNegative);

    EXPECT_THAT(Output(), HasSubstr("1 compressed file that is broken (broken-file)\n"));
    EXPECT_THAT(Errors(), HasSubstr("log.gz:"));
    EXPECT_THAT(CountOf({path}), StartsWith("load,"));
    EXPECT_THAT(Errors(), HasSubstr("1 compressed file that is broken"));
}

TEST_F(CompressedInputTest, AFileOfWhichNothingCanBeReadIsNoLog) {
    CountOf({Write("log.gz",
                   "\x1F\x8B"
                   "nonsense")},
            exitInputOutput);

    EXPECT_THAT(Errors(),
                AllOf(HasSubstr("log.gz"), HasSubstr("no line of this file is a log line")));
}

TEST_F(CompressedInputTest, ACompressionThatIsNotReadIsNamed) {
    TopOptions options;
    options.input.files = {Write("log.zip", "PK\x03\x04 and so on")};

    try {
        RunTop(options, Streams());
        FAIL() << "it is read";
    } catch (const std::system_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("log.zip is compressed with zip"));
    }
}

}  // namespace
}  // namespace tarnview
