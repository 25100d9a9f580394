#pragma once

#include "ErrorReporter.h"
#include "FileSink.h"
#include "Journal.h"
#include "RotatingFileSink.h"

#include "cvlsys/IntegerTypes.h"

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace cvlcoreplatform {

/// Puts lines into a journal, where the end of the process cannot touch them, and from there in
/// blocks into the file: when one is full, `interval` after its first line, and whenever the file
/// is flushed or changed, the process forks or ends. A line that is too long for a block, or that
/// was collected already, goes to the file at once, behind the block. Without a journal, which is
/// told once on the standard error stream, all lines do.
///
/// A block that the file does not take stays in the journal, as the process does what it did; a
/// line that finds no room there is refused like one that the file does not take.
class JournalledSink final : public FileSink {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::milliseconds interval{10};

    /// In the care of the keeper of all journals, whose thread may use the sink a moment longer
    /// than its owners: when the last of them gives it up, the block is in the file and the journal
    /// is gone. `mode` is that of the journal. Throws `std::bad_alloc`.
    static std::shared_ptr<JournalledSink> Make(std::shared_ptr<RotatingFileSink> file,
                                                mode_t mode);

    JournalledSink(std::shared_ptr<RotatingFileSink> file, mode_t mode);

    ~JournalledSink() override;

    JournalledSink(const JournalledSink&) = delete;
    JournalledSink& operator=(const JournalledSink&) = delete;

    const std::string& Path() const noexcept override { return m_file->Path(); }

    bool Rotate() override;
    bool Reopen() override;

    // NOLINTBEGIN(readability-identifier-naming): named by spdlog

    /// Throws `std::system_error` when the line is neither in the journal nor in the file, and
    /// `PartlyWritten` as the file does.
    void log(const spdlog::details::log_msg& msg) override;
    void flush() override;

    // NOLINTEND(readability-identifier-naming)

    /// What the keeper of all journals asks for; none of them throws. The block is written if it is
    /// `interval` old. Whether there is one still.
    bool WriteIfOld(Clock::time_point now) noexcept;

    /// Writes the block and does without a journal from now on. Waits no longer than until `end`.
    void Retire(Clock::time_point end) noexcept;

    /// Locks it for a fork, with the block written, or gives up at `end`.
    void BeforeFork(Clock::time_point end) noexcept;
    void AfterForkInParent() noexcept;
    void AfterForkInChild() noexcept;

private:
    /// Writes the block and gives the journal up.
    void Close() noexcept;

    // With the lock, as all that follows.
    void MakeJournalInNewProcess() noexcept;
    void MakeJournal() noexcept;
    void RemoveJournal() noexcept;
    bool TryWriteBlock() noexcept;
    void WriteBlock();

    const std::shared_ptr<RotatingFileSink> m_file;
    const mode_t m_mode;
    ErrorReporter m_reporter;

    std::mutex m_mutex;
    bool m_isLockedToFork = false;
    // The file was in use by a thread that the forked child does not have.
    bool m_isLost = false;
    bool m_isRetired = false;
    uint32 m_owner;
    std::unique_ptr<Journal> m_journal;
    Clock::time_point m_begun;
};

}  // namespace cvlcoreplatform
