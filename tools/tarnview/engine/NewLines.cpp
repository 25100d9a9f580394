#include "engine/NewLines.h"

#include "read/InputFiles.h"

#include <memory>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tarnview {

NewLines::NewLines(std::vector<std::string> paths, bool addsRotated, LoadCheckpoint& checkpoint)
    : m_paths(std::move(paths)),
      m_addsRotated(addsRotated),
      m_checkpoint(checkpoint) {}

void NewLines::Poll(Problems& problems, const OnLine& onLine) {
    for (const std::string& path : FilesToRead(m_paths, m_addsRotated)) {
        try {
            Read(path, problems, onLine);
        } catch (const std::system_error&) {
            // Between two looks files are moved, and come back.
            if (m_isFirst) {
                throw;
            }
        }
    }
    m_isFirst = false;
}

std::string_view NewLines::NameOf(const std::string& path, std::uint64_t base) {
    const auto [found, isNew] = m_nameOf.try_emplace({path, base});
    if (isNew) {
        found->second = m_names.emplace_back(path);
    }
    return found->second;
}

void NewLines::Read(const std::string& path, Problems& problems, const OnLine& onLine) {
    struct stat status {};

    const bool isStream = path == standardInput;
    if (!isStream && stat(path.c_str(), &status) == 0) {
        const Seen now{status.st_dev,
                       status.st_ino,
                       status.st_size,
                       status.st_mtim.tv_sec * 1'000'000'000 + status.st_mtim.tv_nsec};
        Seen& before = m_seen[path];
        if (before == now) {
            return;
        }
        before = now;
    }
    InputFile input(path);
    const auto firstReader = std::make_unique<LineReader>(input.Descriptor());
    const LineReader::Result first = firstReader->Next();
    const bool isFull = !isStream && LogOf(path) != path;
    if (first == LineReader::Result::End && (!isFull || !firstReader->TakeRest())) {
        return;  // not even one line yet
    }
    constexpr std::size_t known = 4096;
    const auto id = LoadCheckpoint::IdOf(firstReader->Text().substr(0, known));
    const auto [entry, isNew] = m_checkpoint.files.try_emplace(id);
    LoadCheckpoint::File& file = entry->second;
    if (isNew) {
        file.base = m_checkpoint.lines;
    }
    const std::string_view name = NameOf(isStream ? "<stdin>" : path, file.base);
    const std::uint64_t offsetBefore = file.offset;
    const std::uint64_t linesBefore = file.lines;
    const auto take = [&](const LineReader& reader, std::uint64_t skippedLines, Line line) {
        file.lines = skippedLines + reader.Number();
        line.text = reader.Text();
        line.place = {name, file.lines};
        ++m_checkpoint.lines;
        onLine(line);
    };
    // What is not compressed is read from where the last look ended; of all else the beginning is
    // passed over.
    const bool isSeekable =
        lseek(input.Descriptor(), static_cast<off_t>(offsetBefore), SEEK_SET) >= 0;
    LineReader later(input.Descriptor());
    LineReader& reader = isSeekable ? later : *firstReader;
    const std::uint64_t skipped = isSeekable ? offsetBefore : 0;
    const std::uint64_t skippedLines = isSeekable ? linesBefore : 0;
    auto result = isSeekable ? reader.Next() : first;
    for (; result != LineReader::Result::End; result = reader.Next()) {
        const std::uint64_t offset = skipped + reader.Offset();
        if (offset <= offsetBefore) {
            continue;
        }
        file.offset = offset;
        take(reader, skippedLines, {{}, {}, result == LineReader::Result::LongLine, false});
    }
    if (isFull && skipped + reader.BytesRead() > file.offset &&
        ((!isSeekable && first == LineReader::Result::End) || reader.TakeRest())) {
        file.offset = skipped + reader.BytesRead();
        take(reader, skippedLines, {{}, {}, false, true});
    }
    if (const std::string fault = input.TakeFault(); !fault.empty()) {
        problems.Report(ProblemKind::BrokenFile, {name, 0}, fault);
    }
}

}  // namespace tarnview
