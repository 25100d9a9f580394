// A host of one's own, lowest layer: threads, hashing, locks, text, errors. As little as serves:
// memory and processor times are not tracked.
#include "cvlsys/CorvalaException.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"
#include "cvlsys/RefCntObject.h"
#include "cvlsys/TReadWriteLock.h"
#include "cvlsys/TStringCore.h"
#include "cvlsys/TSystem.h"

#include <algorithm>
#include <cstdlib>
#include <iomanip>
#include <locale>
#include <shared_mutex>
#include <sstream>
#include <unistd.h>

RefCntObject::~RefCntObject() = default;

namespace TSystem {

uint64 ThreadID() noexcept {
    return static_cast<uint64>(gettid());
}

uint32 ProcessID() noexcept {
    return static_cast<uint32>(getpid());
}

}  // namespace TSystem

uint32 THash32(const void* data, std::size_t bytes, uint32 seed) noexcept {
    const auto* const first = static_cast<const unsigned char*>(data);
    uint32 hash = 0x811C9DC5 ^ seed;
    for (const unsigned char* byte = first; byte != first + bytes; ++byte) {
        hash = (hash ^ *byte) * 0x01000193;
    }
    return hash;
}

struct TReadWriteLock::State {
    std::shared_mutex mutex;
};

TReadWriteLock::TReadWriteLock(int /*options*/) : m_state(std::make_unique<State>()) {}

TReadWriteLock::~TReadWriteLock() = default;

void TReadWriteLock::LockRead() noexcept {
    m_state->mutex.lock_shared();
}

void TReadWriteLock::UnlockRead() noexcept {
    m_state->mutex.unlock_shared();
}

void TReadWriteLock::LockWrite() noexcept {
    m_state->mutex.lock();
}

void TReadWriteLock::UnlockWrite() noexcept {
    m_state->mutex.unlock();
}

namespace corvala::memory {

// Frames nest even though nothing is counted in them: scopes check that they do.
namespace {
thread_local ThreadMemoryCounters* t_current = nullptr;
}

MemoryTrackingMode GetMemoryTrackingMode() noexcept {
    return MemoryTrackingOff;
}

ThreadMemoryCounters* SwapPushMemoryCounters(ThreadMemoryCounters* frame) noexcept {
    return std::exchange(t_current, frame);
}

ThreadMemoryCounters* SwapPopMemoryCounters(ThreadMemoryCounters* frame) noexcept {
    return std::exchange(t_current, frame);
}

uint64 GetNextOrderingId() noexcept {
    static std::atomic<uint64> last{0};
    return ++last;
}

uint64 MemoryScope::GetCurrentThreadId() noexcept {
    return TSystem::ThreadID();
}

MemoryCounter::~MemoryCounter() = default;

void MemoryCounter::Fold(const ThreadMemoryCounters& /*frame*/, uint64 /*base*/) noexcept {}

}  // namespace corvala::memory

namespace corvala::cputime {

bool GetCpuTrackingEnabled() noexcept {
    return false;
}

ThreadTimeScope::ThreadTimeScope(ThreadTimeValue& value) noexcept : m_value(value) {}

ThreadTimeScope::~ThreadTimeScope() = default;

}  // namespace corvala::cputime

namespace {

// This host writes plain characters only; a real one transcodes.
std::u16string Widen(std::string_view text) {
    return {text.begin(), text.end()};
}

std::string Narrow(std::u16string_view text) {
    std::string narrow;
    for (const char16_t unit : text) {
        narrow += unit < 0x80 ? static_cast<char>(unit) : '?';
    }
    return narrow;
}

}  // namespace

TStringCore::TStringCore(const char16_t* text)
    : TStringCore(std::u16string(text != nullptr ? text : u"")) {}

TStringCore::TStringCore(const wchar_t* text) {
    std::u16string units;
    for (; text != nullptr && *text != L'\0'; ++text) {
        units += static_cast<char16_t>(*text);
    }
    *this = TStringCore(std::move(units));
}

TStringCore::TStringCore(std::u16string_view text) : TStringCore(std::u16string(text)) {}

TStringCore::TStringCore(std::u16string&& text)
    : m_characters(std::make_shared<const std::u16string>(std::move(text))) {}

TStringCore::TStringCore(const char* utf8) : TStringCore(Widen(utf8 != nullptr ? utf8 : "")) {}

TStringCore::TStringCore(const std::string& utf8) : TStringCore(Widen(utf8)) {}

TStringCore::TStringCore(Characters characters) noexcept : m_characters(std::move(characters)) {}

TStringCore TStringCore::FromUtf8(std::string_view utf8) {
    return TStringCore(Widen(utf8));
}

std::string TStringCore::ToUtf8() const {
    return Narrow(View());
}

bool TStringCore::startsWith(const TStringCore& prefix,
                             CaseSensitivity /*sensitivity*/) const noexcept {
    return View().substr(0, prefix.Length()) == prefix.View();
}

TStringCore TStringCore::tokenize(const TStringCore& separator, std::size_t& position) const {
    if (position == npos) {
        return {};
    }
    const std::size_t start = position;
    const std::size_t end = View().find(separator.View(), start);
    position = end == std::u16string_view::npos ? npos : end + separator.Length();
    return TStringCore(View().substr(start, end - start));
}

TStringCore TStringCore::Trimmed() const {
    const std::size_t first = View().find_first_not_of(u' ');
    if (first == std::u16string_view::npos) {
        return {};
    }
    return TStringCore(View().substr(first, View().find_last_not_of(u' ') - first + 1));
}

int32 TStringCore::toInt(int base) const noexcept {
    return static_cast<int32>(std::strtol(ToUtf8().c_str(), nullptr, base));
}

TStringCore TStringCore::number(double value, char format, int precision) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << (format == 'f' ? std::fixed : std::defaultfloat) << std::setprecision(precision)
         << value;
    return TStringCore(text.str());
}

TStringCore TStringCore::FormatSigned(int64 value, int base, int fieldWidth, char16_t fill) {
    const auto magnitude =
        value < 0 ? uint64{0} - static_cast<uint64>(value) : static_cast<uint64>(value);
    const TStringCore digits = FormatUnsigned(magnitude, base, 0, fill);
    const TStringCore text = value < 0 ? TStringCore(u"-") + digits : digits;
    const auto width = static_cast<std::size_t>(std::max(fieldWidth, 0));
    return TStringCore(std::u16string(width - std::min(width, text.Length()), fill)) + text;
}

TStringCore TStringCore::FormatUnsigned(uint64 value, int base, int fieldWidth, char16_t fill) {
    std::u16string reversed;
    do {
        reversed += u"0123456789abcdefghijklmnopqrstuvwxyz"[value % static_cast<uint64>(base)];
        value /= static_cast<uint64>(base);
    } while (value != 0);
    const auto width = static_cast<std::size_t>(std::max(fieldWidth, 0));
    reversed.append(width - std::min(width, reversed.size()), fill);
    return TStringCore(std::u16string(reversed.rbegin(), reversed.rend()));
}

TStringCore TStringCore::Join(const TStringCore& a, const TStringCore& b) {
    return TStringCore(std::u16string(a.View()).append(b.View()));
}

CorvalaError::CorvalaError(uint32 code, const wchar_t* text) : m_code(code), m_text(text) {}

CorvalaError::CorvalaError(uint32 code, TStringCore text) noexcept
    : m_code(code),
      m_text(std::move(text)) {}

CorvalaError CorvalaError::NoError() {
    return {0, TStringCore()};
}

TError::ErrorInfo::ErrorInfo(TStringCore first, TStringCore second, TStringCore third)
    : m_first(std::move(first)),
      m_second(std::move(second)),
      m_third(std::move(third)) {}

void TError::ErrorInfo::GetMembersAsStrings(TStringCore& first,
                                            TStringCore& second,
                                            TStringCore& third) const {
    first = m_first;
    second = m_second;
    third = m_third;
}

CorvalaException::CorvalaException(TStringCore message, CorvalaError error, TError::ErrorInfo info)
    : m_message(std::move(message)),
      m_utf8Message(m_message.ToUtf8()),
      m_error(std::move(error)),
      m_info(std::move(info)) {}

CorvalaException::~CorvalaException() = default;

TStringCore CorvalaException::GetMessage() const {
    return m_message;
}

LogicException::LogicException(const char* file,
                               int line,
                               const char* text,
                               const CorvalaError& error)
    : CorvalaException(TStringCore(text), error),
      m_file(file),
      m_line(line),
      m_text(text) {}

LogicException::~LogicException() = default;

void ThrowLogicException(const char* file, int line, const char* text, const CorvalaError& error) {
    throw LogicException(file, line, text, error);
}
