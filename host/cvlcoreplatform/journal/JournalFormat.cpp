#include "JournalFormat.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace cvlcoreplatform {

std::string PathOfJournal(const std::string& log, uint32 process, int number) {
    return log + '.' + std::to_string(process) +
           (number == 1 ? std::string() : '.' + std::to_string(number)) + ".journal";
}

bool IsNameOfJournal(std::string_view name, std::string_view log) noexcept {
    constexpr std::string_view extension = ".journal";
    if (!name.starts_with(log) || !name.ends_with(extension) ||
        name.size() <= log.size() + extension.size()) {
        return false;
    }
    const std::string_view numbers =
        name.substr(log.size(), name.size() - log.size() - extension.size());
    return numbers.size() > 1 && numbers.front() == '.' &&
           numbers.find_first_not_of(".0123456789") == std::string_view::npos;
}

int LockJournal(const FileDescriptor& journal) noexcept {
    struct flock lock {};

    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    int result = 0;
    do {
        result = fcntl(journal.Get(), F_OFD_SETLK, &lock);
    } while (result != 0 && errno == EINTR);
    return result == 0 ? 0 : errno == EACCES ? EAGAIN : errno;
}

}  // namespace cvlcoreplatform
