#include "engine/Loader.h"

#include "engine/EngineTables.h"

#include <chrono>
#include <random>

namespace tarnview {

namespace {

constexpr std::uint64_t bytesOfABlock = std::uint64_t{64} << 20;  // of the log
// What is kept of a line that cannot be read.
constexpr std::size_t mostOfRejected = std::size_t{64} << 10;

// Later loaders have higher numbers; two that start in the same millisecond have different ones.
std::uint64_t NewLoader() {
    constexpr unsigned randomBits = 22;
    const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
                         std::chrono::system_clock::now().time_since_epoch())
                         .count();
    std::random_device random;
    return static_cast<std::uint64_t>(now) << randomBits |
           (random() & ((std::uint64_t{1} << randomBits) - 1));
}

}  // namespace

Loader::Loader(const Options& options, BlockSender& sender, Problems& problems)
    : m_options(options),
      m_sender(sender),
      m_problems(problems),
      m_lines(options.paths, options.addsRotated, m_checkpoint),
      m_parser({.wantsTables = true}),
      m_joiner(problems, [this](Activity&& activity) { TakeActivity(std::move(activity)); }) {
    if (m_options.checkpoint.empty() || !m_checkpoint.Load(m_options.checkpoint)) {
        m_checkpoint.loader = NewLoader();
    }
    Reopen();
}

void Loader::Resume() {
    // Of an earlier loader, which has counted its activities.
    m_counts.rejected +=
        Send(m_checkpoint.pending, m_checkpoint.loader, m_checkpoint.block, true).rejected;
    m_checkpoint.pending.clear();
}

// What had begun and not ended at the checkpoint.
void Loader::Reopen() {
    TextPool files;
    NativeReader reader([&](NativeReader& row) {
        ActivityRow open = ReadActivityRow(row, files);
        Activity& activity = open.activity;
        activity.beginPlace.file =
            m_lines.NameOf(std::string(activity.beginPlace.file), open.beginLine);
        m_beginLines[{activity.beginPlace.file.data(), activity.beginPlace.line}] = open.beginLine;
        if (open.wasOpen) {
            m_listed[{open.beginLine, activity.process.number}] = true;
        }
        m_joiner.Reopen(std::move(activity));
    });
    reader.Take(m_checkpoint.open);
    reader.Finish();
}

void Loader::Poll() {
    m_lines.Poll(m_problems, [this](const NewLines::Line& line) { Take(line); });
    ListOpen();
    SendBlock();
    WaitForBlock();
}

void Loader::Take(const NewLines::Line& line) {
    // Clocks are compared within a file only.
    if (m_file != line.place.file.data()) {
        m_file = line.place.file.data();
        m_examiner.emplace(&m_problems);
    }
    ParsedLine parsed;
    const LogLine* read = nullptr;
    if (line.isLong) {
        m_problems.Report(ProblemKind::LongLine, line.place, "");
    } else {
        if (line.isCut) {
            m_problems.Report(ProblemKind::CutLine, line.place, "");
        }
        parsed = ParseLine(m_parser, line.text, line.place.line);
        read = m_examiner->Examine(parsed, line.place);
    }
    const std::uint64_t number = m_checkpoint.lines;
    if (read == nullptr) {
        const RowOrigin origin{0, m_checkpoint.loader, m_checkpoint.block + 1, number};
        const std::string reason = line.isLong ? "too long" : m_parser.Detail();
        Write(RejectedRow{origin, line.place, reason, line.text.substr(0, mostOfRejected)},
              m_block[{tables::rejected, origin.day}]);
        ++m_counts.rejected;
    } else if (read->IsOfActivity()) {
        if (read->kind == LineKind::Begin) {
            m_beginLines[{line.place.file.data(), line.place.line}] = number;
        }
        m_joiner.Take(*read, line.place);
    } else {
        const RowOrigin origin{
            DayOf(read->time), m_checkpoint.loader, m_checkpoint.block + 1, number};
        Write(MessageRow{origin, *read, line.place}, m_block[{tables::messages, origin.day}]);
        ++m_counts.messages;
    }
    m_bytesInBlock += line.text.size();
    if (++m_linesInBlock >= m_options.blockLines || m_bytesInBlock >= bytesOfABlock) {
        SendBlock();
    }
}

ActivityRow Loader::RowOf(const Activity& activity) const {
    ActivityRow row;
    row.origin.day = DayOf(activity.end);
    row.origin.loader = m_checkpoint.loader;
    row.origin.block = m_checkpoint.block + 1;
    if (activity.hasBegin) {
        row.beginLine =
            m_beginLines.at({activity.beginPlace.file.data(), activity.beginPlace.line});
    }
    row.origin.line = activity.hasEnd ? m_checkpoint.lines : row.beginLine;
    row.activity = activity;
    return row;
}

void Loader::TakeActivity(Activity&& activity) {
    ActivityRow row = RowOf(activity);
    row.wasOpen = m_listed.erase({row.beginLine, activity.process.number}) != 0;
    Write(row, m_block[{tables::activities, row.origin.day}]);
    ++m_counts.activities;
    // What a fork has in common with its parent goes on there.
    if (activity.hasBegin && !activity.isForked) {
        m_beginLines.erase({activity.beginPlace.file.data(), activity.beginPlace.line});
    }
}

// What is open where the logs end now, and was not so before.
void Loader::ListOpen() {
    for (const Activity* const activity : m_joiner.Open()) {
        ActivityRow row = RowOf(*activity);
        if (m_listed.try_emplace({row.beginLine, activity->process.number}, true).second) {
            row.wasOpen = true;
            Write(row, m_block[{tables::open, row.origin.day}]);
            ++m_linesInBlock;
        }
    }
}

void Loader::SendBlock() {
    if (m_linesInBlock == 0) {
        return;
    }
    WaitForBlock();
    ++m_checkpoint.block;
    m_checkpoint.pending.clear();
    for (auto& [key, writer] : m_block) {
        if (writer.Rows() != 0) {
            PendingInsert insert{key.first, key.second, writer.Rows(), writer.Names(), {}};
            insert.data = writer.Take();
            m_checkpoint.pending.push_back(std::move(insert));
        }
    }
    m_block.clear();
    m_linesInBlock = 0;
    m_bytesInBlock = 0;
    if (!m_options.checkpoint.empty()) {
        NativeWriter open;
        for (const Activity* const activity : m_joiner.Open()) {
            ActivityRow row = RowOf(*activity);
            row.wasOpen = m_listed.count({row.beginLine, activity->process.number}) != 0;
            Write(row, open);
        }
        m_checkpoint.open = open.Rows() == 0 ? "" : open.Take();
        m_checkpoint.Save(m_options.checkpoint);
    }
    m_onItsWay = std::async(std::launch::async,
                            [this,
                             loader = m_checkpoint.loader,
                             block = m_checkpoint.block,
                             pending = std::move(m_checkpoint.pending)] {
                                return Send(pending, loader, block, false);
                            });
    m_checkpoint.pending.clear();
}

// Uses nothing but the sender: the next block is made meanwhile.
Loader::Counts Loader::Send(const std::vector<PendingInsert>& pending,
                            std::uint64_t loader,
                            std::uint32_t block,
                            bool mayBeThere) {
    Counts refused;
    for (const PendingInsert& insert : pending) {
        const std::uint64_t rows = m_sender.Send(insert, loader, block, mayBeThere);
        refused.rejected += rows;
        refused.activities += insert.table == tables::activities ? rows : 0;
        refused.messages += insert.table == tables::messages ? rows : 0;
    }
    return refused;
}

void Loader::WaitForBlock() {
    if (m_onItsWay.valid()) {
        const Counts refused = m_onItsWay.get();
        m_counts.activities -= refused.activities;
        m_counts.messages -= refused.messages;
        m_counts.rejected += refused.rejected;
    }
}

}  // namespace tarnview
