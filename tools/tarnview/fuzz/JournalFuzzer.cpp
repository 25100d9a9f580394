// Makes a journal beside a log, and a full file of the log, of its input, and reads it: what is
// given out are whole lines of the journal, all those that the log does not have.
//
// The input: a byte of Flags, the head of the journal, and texts that end with NUL: the lines of
// the journal, the log, the full file.

#include "read/InputFiles.h"
#include "read/JournalLines.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

enum Flags : unsigned {
    HasFullFile = 1,
    IsOfLog = 2,       // the head names the file that is the log now,
    IsOfFullFile = 4,  // or the one that was it before
    IsCut = 8,         // the journal's file
};

constexpr std::size_t headBytes = 64;
constexpr std::size_t linesAt = 4096;
constexpr std::size_t capacity = 65536;

void Require(bool holds, const char* what) {
    if (!holds) {
        std::cerr << "does not hold: " << what << '\n';
        std::abort();
    }
}

// A folder for this process, which is gone when it ends in the ordinary way.
class Folder {
public:
    Folder() {
        char path[] = "/tmp/tarnview-journals-XXXXXX";
        Require(mkdtemp(path) != nullptr, "a folder can be made");
        m_path = path;
    }

    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string Of(const char* name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

void Write(const std::string& path, std::string_view text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    Require(!file.fail(), "a file can be written");
}

template <class Number>
Number NumberAt(const std::string& head, std::size_t offset) {
    Number number{};
    std::memcpy(&number, head.data() + offset, sizeof(number));
    return number;
}

void NameFile(std::string& head, const std::string& path) {
    struct stat status {};

    Require(stat(path.c_str(), &status) == 0, "the file is there");
    const std::uint64_t device = status.st_dev;
    const std::uint64_t inode = status.st_ino;
    std::memcpy(head.data() + 40, &device, sizeof(device));
    std::memcpy(head.data() + 48, &inode, sizeof(inode));
}

std::string ReadAll(const std::string& path) {
    const tarnview::InputFile file(path);
    std::string text(linesAt + 2 * capacity, '\0');
    const ssize_t count = read(file.Descriptor(), text.data(), text.size());
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return text;
}

std::string_view TakeText(std::string_view& rest) {
    const std::string_view text = rest.substr(0, rest.find('\0'));
    rest.remove_prefix(std::min(rest.size(), text.size() + 1));
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Folder folder;
    const std::string log = folder.Of("a.log");
    const std::string full = folder.Of("a.1.log");
    const std::string journal = folder.Of("a.log.4711.journal");
    if (size < 1 + headBytes) {
        return 0;
    }
    const unsigned flags = data[0];
    std::string head(reinterpret_cast<const char*>(data) + 1, headBytes);
    std::string_view rest(reinterpret_cast<const char*>(data) + 1 + headBytes,
                          size - 1 - headBytes);
    std::string lines(TakeText(rest));
    lines.resize(capacity, '\0');
    const std::string_view logText = TakeText(rest);
    const std::string_view fullText = TakeText(rest);
    Write(log, logText);
    unlink(full.c_str());
    if ((flags & HasFullFile) != 0) {
        Write(full, fullText);
    }
    if ((flags & IsOfLog) != 0) {
        NameFile(head, log);
    } else if ((flags & IsOfFullFile) != 0 && (flags & HasFullFile) != 0) {
        NameFile(head, full);
    }
    std::string whole = head;
    whole.resize(linesAt, '\0');
    whole += lines;
    if ((flags & IsCut) != 0) {
        whole.resize(size * 31 % whole.size());
    }
    Write(journal, whole);

    const int descriptor = open(journal.c_str(), O_RDONLY | O_CLOEXEC);
    Require(descriptor != -1, "the journal is there");
    const bool isJournal = tarnview::IsJournal(descriptor);
    const std::string left = tarnview::LinesLeftIn(journal, descriptor);
    close(descriptor);

    const auto version = NumberAt<std::uint32_t>(head, 8);
    const auto begin = NumberAt<std::uint64_t>(head, 16);
    const auto end = NumberAt<std::uint64_t>(head, 24);
    const auto lands = NumberAt<std::uint32_t>(head, 32);
    if (version != 1 || begin >= end || end > capacity || whole.size() != linesAt + capacity) {
        Require(left.empty(), "a journal that is not whole has no lines");
    } else {
        const std::string_view all = std::string_view(lines).substr(begin, end - begin);
        Require(all.ends_with(left), "what is left are the last lines");
        const std::string_view there = all.substr(0, all.size() - left.size());
        Require(there.empty() || there.back() == '\n', "what is left begins with a line");
        Require(lands != 0 || there.empty(), "no line was on its way to the log");
        Require(there.empty() || logText.find(there) != std::string_view::npos ||
                    fullText.find(there) != std::string_view::npos,
                "what is not left is in the log");
    }
    if (isJournal) {
        Require(ReadAll(journal) == left, "who reads the file reads what is left");
    }
    return 0;
}
