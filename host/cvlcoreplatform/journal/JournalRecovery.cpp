#include "JournalRecovery.h"

#include "FileDescriptor.h"
#include "FullFiles.h"
#include "JournalFormat.h"
#include "RotationLock.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace cvlcoreplatform {

namespace {

namespace fs = std::filesystem;

/// A journal whose process is gone, as it was left.
struct LeftJournal {
    FileDescriptor file;  ///< locked
    JournalLanding landing;
    bool lands = false;
    uint64 begin = 0;
    std::string lines;
};

std::string ReadAt(const FileDescriptor& file, uint64 offset, std::size_t bytes) {
    std::string text(bytes, '\0');
    std::size_t read = 0;
    while (read < bytes) {
        const ssize_t now =
            pread(file.Get(), text.data() + read, bytes - read, static_cast<off_t>(offset + read));
        if (now <= 0) {
            if (now < 0 && errno == EINTR) {
                continue;
            }
            break;
        }
        read += static_cast<std::size_t>(now);
    }
    text.resize(read);
    return text;
}

bool WriteAll(const FileDescriptor& file, std::string_view text) noexcept {
    while (!text.empty()) {
        const ssize_t written = write(file.Get(), text.data(), text.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

/// What somebody else may have put there is not read: it would get into the log.
bool MayBeRead(const struct stat& journal) noexcept {
    return S_ISREG(journal.st_mode) && journal.st_nlink != 0 &&
           (journal.st_uid == geteuid() || journal.st_uid == 0) &&
           static_cast<std::size_t>(journal.st_size) == journalHeadBytes + journalCapacity;
}

std::optional<LeftJournal> TakeOver(const fs::path& path) {
    LeftJournal journal;
    journal.file = FileDescriptor(open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));

    // Once locked: another process may have recovered it meanwhile.
    struct stat status {};

    if (!journal.file.IsOpen() || LockJournal(journal.file) != 0 ||
        fstat(journal.file.Get(), &status) != 0 || !MayBeRead(status)) {
        return std::nullopt;
    }
    const std::string bytes = ReadAt(journal.file, 0, journalHeadBytes + journalCapacity);
    JournalHead head{};
    if (bytes.size() != journalHeadBytes + journalCapacity) {
        return std::nullopt;
    }
    std::memcpy(static_cast<void*>(&head), bytes.data(), sizeof head);
    const uint64 begin = head.begin;
    const uint64 end = head.end;
    if (std::string_view(head.magic, sizeof head.magic) != JournalHead::expectedMagic ||
        head.version != JournalHead::expectedVersion || end > journalCapacity) {
        return std::nullopt;
    }
    journal.landing = head.landing;
    journal.lands = head.lands != 0;
    journal.begin = begin;
    if (begin < end) {
        journal.lines = bytes.substr(journalHeadBytes + begin, end - begin);
    }
    return journal;
}

/// Where a text is in a file, from an offset on.
std::optional<uint64> Find(const FileDescriptor& file, uint64 offset, std::string_view text) {
    constexpr std::size_t step = std::size_t{1} << 20;
    for (;;) {
        const std::string part = ReadAt(file, offset, step + text.size());
        const std::size_t place = part.find(text);
        if (place != std::string::npos) {
            return offset + place;
        }
        if (part.size() <= step) {
            return std::nullopt;
        }
        offset += step;
    }
}

std::size_t CommonLength(std::string_view one, std::string_view other) noexcept {
    const auto [end, otherEnd] = std::mismatch(one.begin(), one.end(), other.begin(), other.end());
    return static_cast<std::size_t>(end - one.begin());
}

uint64 SizeOf(const FileDescriptor& file) noexcept {
    const off_t size = lseek(file.Get(), 0, SEEK_END);
    return size < 0 ? 0 : static_cast<uint64>(size);
}

/// What the log, or a file that it has been renamed to, lacks of the lines.
class MissingLines {
public:
    MissingLines(const std::string& path, const FileDescriptor& log, const LeftJournal& journal)
        : m_lines(journal.lines) {
        if (journal.lands && !m_lines.empty()) {
            Compare(path, log, journal.landing);
        }
    }

    /// From the first byte on that the log does not have.
    std::string_view Get() const noexcept { return m_lines.substr(m_begin + m_bytesOfBrokenLine); }

    /// Where the first line begins that the log does not have whole.
    std::size_t Begin() const noexcept { return m_begin; }

    /// How much of that line is the end of the log.
    std::size_t BytesOfBrokenLine() const noexcept { return m_bytesOfBrokenLine; }

private:
    std::string_view FirstLine() const noexcept {
        return m_lines.substr(0, m_lines.find('\n') + 1);
    }

    // From the log back to the file that it was when the process began to write.
    void Compare(const std::string& path,
                 const FileDescriptor& log,
                 const JournalLanding& landing) {
        bool isMeant = IsMeant(log, landing);
        bool isFound = CompareFrom(log, isMeant ? landing.size : 0);
        for (std::size_t number = 1; !isMeant && !isFound; ++number) {
            const FileDescriptor full(
                open(PathOfFullFile(path, number).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
            if (!full.IsOpen()) {
                break;
            }
            isMeant = IsMeant(full, landing);
            isFound = CompareFrom(full, isMeant ? landing.size : 0);
        }
        if (!isFound) {
            CompareWithBrokenLine(log);
        }
    }

    static bool IsMeant(const FileDescriptor& file, const JournalLanding& landing) noexcept {
        struct stat status {};

        return fstat(file.Get(), &status) == 0 && status.st_dev == landing.device &&
               status.st_ino == landing.inode;
    }

    // Lines carry ids and times: the first one is in the files once, if at all. What others wrote
    // behind a broken line does not belong to it.
    bool CompareFrom(const FileDescriptor& file, uint64 offset) {
        const auto place = Find(file, offset, FirstLine());
        if (!place) {
            return false;
        }
        const std::string there = ReadAt(file, *place, m_lines.size());
        const std::size_t common = CommonLength(m_lines, there);
        m_begin = m_lines.substr(0, common).rfind('\n') + 1;
        m_bytesOfBrokenLine = common == there.size() ? common - m_begin : 0;
        return true;
    }

    // Not even the first line is whole.
    void CompareWithBrokenLine(const FileDescriptor& log) {
        const uint64 size = SizeOf(log);
        const std::size_t bytes =
            static_cast<std::size_t>(std::min<uint64>(FirstLine().size(), size));
        const std::string tail = ReadAt(log, size - bytes, bytes);
        std::size_t length = tail.size();
        while (length != 0 && !tail.ends_with(m_lines.substr(0, length))) {
            --length;
        }
        m_bytesOfBrokenLine = length;
    }

    const std::string_view m_lines;
    std::size_t m_begin = 0;
    std::size_t m_bytesOfBrokenLine = 0;
};

bool EndsInsideLine(const FileDescriptor& log) {
    const uint64 size = SizeOf(log);
    return size != 0 && ReadAt(log, size - 1, 1) != "\n";
}

template <class Value>
bool Store(const LeftJournal& journal, std::size_t offset, const Value& value) noexcept {
    return pwrite(journal.file.Get(), &value, sizeof value, static_cast<off_t>(offset)) ==
           static_cast<ssize_t>(sizeof value);
}

/// This process may be killed as well, or the disk be full. In this order, what the next one finds
/// is true after each step.
bool Announce(const LeftJournal& journal, const MissingLines& missing, const FileDescriptor& log) {
    struct stat status {};

    if (fstat(log.Get(), &status) != 0) {
        return false;
    }
    JournalLanding landing;
    landing.device = status.st_dev;
    landing.inode = status.st_ino;
    landing.size = static_cast<uint64>(status.st_size) - missing.BytesOfBrokenLine();
    return Store(journal, offsetof(JournalHead, begin), journal.begin + missing.Begin()) &&
           Store(journal, offsetof(JournalHead, landing), landing) &&
           Store(journal, offsetof(JournalHead, lands), uint32{1});
}

/// Whether the log has all lines of the journal now.
bool Recover(const std::string& path, mode_t mode, const LeftJournal& journal) {
    constexpr int flags = O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC;
    const FileDescriptor log(open(path.c_str(), flags, mode));
    if (!log.IsOpen()) {
        return false;
    }
    const RotationLock lock(log);
    if (lock.IsRefused()) {
        return false;
    }
    const MissingLines missing(path, log, journal);
    if (missing.Get().empty()) {
        return true;
    }
    const bool startsNewLine = missing.BytesOfBrokenLine() == 0 && EndsInsideLine(log);
    return Announce(journal, missing, log) &&
           WriteAll(log, std::string(startsNewLine ? "\n" : "").append(missing.Get()));
}

}  // namespace

void RecoverJournals(const std::string& log, mode_t mode) noexcept {
    try {
        const fs::path path(log);
        const fs::file_status status = fs::symlink_status(path);
        if (fs::exists(status) && !fs::is_regular_file(status)) {
            return;
        }
        const std::string name = path.filename().string();
        for (const fs::directory_entry& entry : fs::directory_iterator(path.parent_path())) {
            if (!IsNameOfJournal(entry.path().filename().string(), name)) {
                continue;
            }
            const auto journal = TakeOver(entry.path());
            if (journal && Recover(log, mode, *journal)) {
                unlink(entry.path().c_str());
            }
        }
    } catch (const std::exception&) {
        // They are still there, for the next one who opens the log and for who reads it.
        return;
    }
}

}  // namespace cvlcoreplatform
