#pragma once

#include "FileDescriptor.h"

#include "cvlsys/IntegerTypes.h"

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>

namespace cvlcoreplatform {

/// Where a block lands: a log file, which may be renamed at any time, and how long it was before.
struct JournalLanding {
    uint64 device = 0;
    uint64 inode = 0;
    uint64 size = 0;
};

/// The first bytes of a journal, as docs/log-format.md tells. All but the atomic members are
/// written before `version`, and never again.
///
/// A process may be killed between any two stores, so each of them leaves a journal that tells the
/// truth: a line counts from the store of `end` on. `lands` is set for as long as a block is being
/// written to the log: from then on the log may hold a part of it.
struct JournalHead {
    static constexpr std::string_view expectedMagic = "tarnjrnl";
    static constexpr uint32 expectedVersion = 1;

    char magic[8];
    std::atomic<uint32> version;  ///< 0 while the journal is being made
    uint32 process;
    std::atomic<uint64> begin;  ///< of the lines in it, in bytes behind the head
    std::atomic<uint64> end;    ///< not above `begin`: there are none
    std::atomic<uint32> lands;
    uint32 unused;
    JournalLanding landing;
};

/// The head has a page of its own.
inline constexpr std::size_t journalHeadBytes = 4096;
inline constexpr std::size_t journalCapacity = std::size_t{64} << 10;

static_assert(sizeof(JournalHead) == 64 && sizeof(JournalHead) <= journalHeadBytes);
static_assert(std::atomic<uint64>::is_always_lock_free);

/// Of the journal of a process; further ones that it has for the same log have numbers from 2 on.
std::string PathOfJournal(const std::string& log, uint32 process, int number);

/// Locks it for as long as its descriptor, and no copy of it, is open. The error, 0 if there is
/// none; `EAGAIN` if somebody else has locked it. Does not wait.
int LockJournal(const FileDescriptor& journal) noexcept;

/// Whether that is the name of a journal of the log with this name.
bool IsNameOfJournal(std::string_view name, std::string_view log) noexcept;

}  // namespace cvlcoreplatform
