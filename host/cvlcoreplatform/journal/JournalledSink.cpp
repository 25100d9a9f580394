#include "JournalledSink.h"

#include "JournalKeeper.h"
#include "LogCounters.h"

#include "cvlsys/TSystem.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <filesystem>
#include <new>
#include <spdlog/details/log_msg.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <utility>

namespace cvlcoreplatform {

namespace {

// A longer text gains nothing from waiting for company.
constexpr std::size_t longestLine = journalCapacity / 4;

/// How much of a block that was written in part needs not be written again: a line is there with
/// its last character.
std::size_t WholeLines(std::string_view block, std::size_t written) noexcept {
    const std::size_t end = block.find('\n', written == 0 ? 0 : written - 1);
    return end == written || end + 1 == written ? end + 1
                                                : block.substr(0, written).rfind('\n') + 1;
}

bool TryToLock(std::mutex& mutex, JournalledSink::Clock::time_point end) noexcept {
    constexpr std::chrono::milliseconds pause{1};
    while (!mutex.try_lock()) {
        if (JournalledSink::Clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(pause);
    }
    return true;
}

}  // namespace

std::shared_ptr<JournalledSink> JournalledSink::Make(std::shared_ptr<RotatingFileSink> file,
                                                     mode_t mode) {
    auto sink = std::make_shared<JournalledSink>(std::move(file), mode);
    JournalKeeper::Get().Add(sink);
    JournalledSink* const address = sink.get();
    return {address, [sink = std::move(sink)](JournalledSink* /*given up*/) { sink->Close(); }};
}

JournalledSink::JournalledSink(std::shared_ptr<RotatingFileSink> file, mode_t mode)
    : m_file(std::move(file)),
      m_mode(mode),
      m_owner(TSystem::ProcessID()) {
    MakeJournal();
}

JournalledSink::~JournalledSink() {
    JournalKeeper::Get().Wake();
}

void JournalledSink::Close() noexcept {
    const std::lock_guard guard(m_mutex);
    if (m_owner == TSystem::ProcessID()) {
        RemoveJournal();
    } else if (m_journal != nullptr) {
        m_journal->LeaveToParent();
        m_journal.reset();
    }
}

// Only a regular file can be looked through for what it has of a journal.
void JournalledSink::MakeJournal() noexcept {
    try {
        const std::filesystem::path path = std::filesystem::canonical(m_file->Path());
        if (std::filesystem::is_regular_file(path)) {
            m_journal = std::make_unique<Journal>(path.string(), m_mode);
        }
    } catch (const std::exception& error) {
        m_reporter.Report(ErrorReporter::Clock::now(),
                          "lines are written without a journal",
                          error.what(),
                          logCounters.writeErrors.load(std::memory_order_relaxed));
    }
}

void JournalledSink::RemoveJournal() noexcept {
    TryWriteBlock();
    m_journal.reset();
}

void JournalledSink::MakeJournalInNewProcess() noexcept {
    const uint32 process = TSystem::ProcessID();
    if (m_owner == process) {
        return;
    }
    m_owner = process;
    if (m_journal != nullptr) {
        m_journal->LeaveToParent();
        m_journal.reset();
        MakeJournal();
    }
}

void JournalledSink::log(const spdlog::details::log_msg& msg) {
    const std::string_view text(msg.payload.data(), msg.payload.size());
    const std::lock_guard guard(m_mutex);
    MakeJournalInNewProcess();
    if (m_isLost) {
        throw std::system_error(EDEADLK, std::generic_category(), "the file was in use at a fork");
    }
    if (m_journal == nullptr || text.size() > longestLine) {
        TryWriteBlock();
        m_file->log(msg);
        return;
    }
    const bool isFirst = m_journal->Lines().empty();
    if (!m_journal->Append(text)) {
        WriteBlock();
        if (!m_journal->Append(text)) {
            throw std::system_error(ENOSPC, std::generic_category(), "the journal is full");
        }
        m_begun = Clock::now();
    } else if (isFirst) {
        m_begun = Clock::now();
        JournalKeeper::Get().Wake();
    }
    if (!JournalKeeper::Get().HasThread() && Clock::now() - m_begun >= interval) {
        TryWriteBlock();
    }
}

void JournalledSink::flush() {
    const std::lock_guard guard(m_mutex);
    if (!m_isLost) {
        TryWriteBlock();
        m_file->flush();
    }
}

bool JournalledSink::Rotate() {
    const std::lock_guard guard(m_mutex);
    return !m_isLost && TryWriteBlock() && m_file->Rotate();
}

// What is at the path may be another place now.
bool JournalledSink::Reopen() {
    const std::lock_guard guard(m_mutex);
    if (m_isLost || !TryWriteBlock() || !m_file->Reopen()) {
        return false;
    }
    MakeJournalInNewProcess();
    if (!m_isRetired) {
        m_journal.reset();
        MakeJournal();
    }
    return true;
}

bool JournalledSink::TryWriteBlock() noexcept {
    try {
        WriteBlock();
        return true;
    } catch (const std::exception& error) {
        m_reporter.Report(ErrorReporter::Clock::now(),
                          "lines wait in a journal of the log",
                          error.what(),
                          logCounters.writeErrors.load(std::memory_order_relaxed));
        return false;
    }
}

void JournalledSink::WriteBlock() {
    if (m_journal == nullptr || m_owner != TSystem::ProcessID()) {
        return;
    }
    const std::string_view block = m_journal->Lines();
    if (block.empty()) {
        return;
    }
    const std::string_view text = block.substr(0, block.size() - 1);
    const struct stat log = m_file->Status();
    m_journal->AnnounceLanding({log.st_dev, log.st_ino, static_cast<uint64>(log.st_size)});
    try {
        m_file->log(spdlog::details::log_msg(
            spdlog::string_view_t(), spdlog::level::info, {text.data(), text.size()}));
    } catch (const PartlyWritten& partly) {
        m_journal->HasLanded(std::min(WholeLines(block, partly.bytes), block.size()));
        throw;
    } catch (const std::system_error&) {
        m_journal->HasLanded(0);
        throw;
    }
    m_journal->HasLanded(block.size());
}

bool JournalledSink::WriteIfOld(Clock::time_point now) noexcept {
    const std::unique_lock guard(m_mutex, std::try_to_lock);
    if (!guard) {
        return true;
    }
    if (m_isLost || m_journal == nullptr || m_owner != TSystem::ProcessID() ||
        m_journal->Lines().empty()) {
        return false;
    }
    return now - m_begun < interval || !TryWriteBlock();
}

void JournalledSink::Retire(Clock::time_point end) noexcept {
    if (!TryToLock(m_mutex, end)) {
        return;
    }
    const std::lock_guard guard(m_mutex, std::adopt_lock);
    if (!m_isLost) {
        m_isRetired = true;
        RemoveJournal();
    }
}

void JournalledSink::BeforeFork(Clock::time_point end) noexcept {
    m_isLockedToFork = TryToLock(m_mutex, end);
    if (m_isLockedToFork) {
        TryWriteBlock();
    }
}

void JournalledSink::AfterForkInParent() noexcept {
    if (std::exchange(m_isLockedToFork, false)) {
        m_mutex.unlock();
    }
}

void JournalledSink::AfterForkInChild() noexcept {
    if (m_isLockedToFork) {
        AfterForkInParent();
        return;
    }
    new (&m_mutex) std::mutex;
    m_isLost = true;
}

}  // namespace cvlcoreplatform
