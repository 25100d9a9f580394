#include "tarn/TarnSettings.h"

#include "ActivityTokenText.h"
#include "NeverDestroyed.h"
#include "RequestAttributes.h"
#include "ShortText.h"

#include "cvlcoreplatform/TLog.h"

#include <bit>
#include <cstddef>
#include <string_view>
#include <utility>

namespace tarn {
namespace {

std::unordered_set<TString> MappableAttributes() {
    std::unordered_set<TString> names;
#define TARN_ADD_IF_MAPPABLE(name, token, kind)                                   \
    if constexpr (RequestAttributeKind::kind == RequestAttributeKind::Mappable) { \
        names.insert(Tokens().token);                                             \
    }
    TARN_REQUEST_ATTRIBUTES(TARN_ADD_IF_MAPPABLE)
#undef TARN_ADD_IF_MAPPABLE
    return names;
}

/// The attribute names that the log events read from a request.
const std::unordered_set<TString>& CanonicalEventAttributes() {
    static const NeverDestroyed<std::unordered_set<TString>> names(MappableAttributes());
    return names.Get();
}

TarnSettings::Mappings DefaultMappings() {
    TarnSettings::Mappings mappings(8);
    for (const TString& name : CanonicalEventAttributes()) {
        mappings.emplace(name, name);
    }
    return mappings;
}

void LogOffs(const TarnSettings::Names& offs) {
    TLog::Logger& logger = TLog::Logger::Get();
    if (!logger.IsEnabled(TLog::Info)) {
        return;
    }
    std::string joined;
    for (const std::string& name : offs) {
        if (&name != &*offs.begin()) {
            joined += ',';
        }
        joined += name;
    }
    TLog::NameTable fields;
    fields.emplace(TString(u"activities-turned-off"), TLog::Literal::String(TString(joined)));
    logger.Log(TLog::Info,
               TLog::Event(TString(u"tarn-set-offs"), TLog::Object::Make(std::move(fields))));
}

}  // namespace

TarnSettings::HashedName::HashedName(std::string_view name) noexcept
    : text(name),
      hash(HashText(name)) {}

TarnSettings::OffNames::OffNames(const Names& names) : m_names(names) {
    // Two at least: a hash cannot be shifted by all of its bits.
    const std::size_t slots = std::bit_ceil(2 * m_names.size() + 2);
    m_slots.resize(slots);
    m_shift = static_cast<unsigned>(64 - std::countr_zero(slots));
    for (const std::string& text : m_names) {
        const HashedName name(text);
        std::size_t slot = name.hash >> m_shift;
        while (m_slots[slot].name != nullptr) {
            slot = (slot + 1) % slots;
        }
        m_slots[slot] = {name.hash, &text};
    }
}

inline bool TarnSettings::OffNames::Contains(std::string_view text, uint64 hash) const noexcept {
    const std::size_t last = m_slots.size() - 1;
    for (std::size_t slot = hash >> m_shift; m_slots[slot].name != nullptr;
         slot = (slot + 1) & last) {
        if (m_slots[slot].hash == hash && IsSameText(*m_slots[slot].name, text)) {
            return true;
        }
    }
    return false;
}

void TarnSettings::Filter::Set(const Names& names) noexcept {
    std::array<uint64, words> bits{};
    for (const std::string& text : names) {
        const HashedName name(text);
        bits[WordOf(name)] |= BitOf(name);
    }
    for (std::size_t i = 0; i < words; ++i) {
        m_words[i].store(bits[i], std::memory_order_relaxed);
    }
}

TarnSettings& TarnSettings::GetInstance() {
    static constinit std::atomic<TarnSettings*> found{nullptr};
    TarnSettings* const instance = found.load(std::memory_order_acquire);
    return instance != nullptr ? *instance : Make(found);
}

[[gnu::noinline]] TarnSettings& TarnSettings::Make(std::atomic<TarnSettings*>& found) {
    static TarnSettings* const instance = new TarnSettings();
    found.store(instance, std::memory_order_release);
    return *instance;
}

TarnSettings::TarnSettings()
    : m_offs(Names()),
      m_eventAttributeMappings(DefaultMappings()),
      m_lock(0) {}

void TarnSettings::SetOffs(const Names& offs) {
    // A log back end may ask for the set: it sees the old one, and finds no lock held.
    LogOffs(offs);

    // What is replaced is freed when the lock is let go.
    OffNames replacement(offs);
    const TReadWriteLock::WriteGuard guard(m_lock);
    std::swap(m_offs, replacement);
    m_filter.Set(m_offs.Get());
    m_someAreOff.store(!m_offs.Get().empty(), std::memory_order_relaxed);
    __atomic_store_n(&m_verdictOff, m_verdictOff + 2, __ATOMIC_RELAXED);
}

TarnSettings::Names TarnSettings::GetCopyOfOffs() const {
    const TReadWriteLock::ReadGuard guard(m_lock);
    return m_offs.Get();
}

TarnSettings::Names TarnSettings::ParseOffActivitiesFromString(const TString& text) {
    Names names;
    const TString separator(u",");
    std::size_t position = 0;
    for (TString token = text.tokenize(separator, position); !token.IsEmpty();
         token = text.tokenize(separator, position)) {
        names.insert(token.Trimmed().ToUtf8());
    }
    return names;
}

void TarnSettings::SetRankOn(TraceRank rank) noexcept {
    m_rankOn.store(static_cast<int32>(rank), std::memory_order_relaxed);
}

TraceRank TarnSettings::GetRankOn() const noexcept {
    return TraceRank(m_rankOn.load(std::memory_order_relaxed));
}

bool TarnSettings::IsOff(const char* name) const {
    return name != nullptr && SomeAreOff() && IsNameOff(name);
}

// What is found without the lock nobody can tell from what would be found with it: a scope that
// begins after `SetOffs` has returned sees the new set, and one that begins earlier may come before
// it in any case.
bool TarnSettings::IsNameOff(std::string_view name) const {
    const HashedName hashed(name);
    return m_filter.MayContain(hashed) && IsListed(hashed.text, hashed.hash);
}

// Apart: most names have no bit, and need none of the registers that are saved here.
[[gnu::noinline]] bool TarnSettings::IsListed(std::string_view name, uint64 hash) const {
    const TReadWriteLock::ReadGuard guard(m_lock);
    return m_offs.Contains(name, hash);
}

// Set and number are read under one lock, so the verdict is good for that number.
bool TarnSettings::FindOut(abi::tarn_site& site, const char* name) const {
    const HashedName hashed(name);
    const TReadWriteLock::ReadGuard guard(m_lock);
    const bool isOff = m_offs.Contains(hashed.text, hashed.hash);
    __atomic_store_n(
        &site.verdict, isOff ? m_verdictOff : m_verdictOff & ~onlyOff, __ATOMIC_RELAXED);
    __atomic_store_n(&site.off, &m_verdictOff, __ATOMIC_RELEASE);
    return isOff;
}

void TarnSettings::AddEventAttributeMapping(const TString& name, const TString& target) {
    if (CanonicalEventAttributes().count(target) == 0) {
        return;
    }
    const TReadWriteLock::WriteGuard guard(m_lock);
    m_eventAttributeMappings.insert_or_assign(name, target);
}

std::pair<bool, TString> TarnSettings::GetEventAttributeMapping(const TString& name) const {
    const TReadWriteLock::ReadGuard guard(m_lock);
    const auto mapping = m_eventAttributeMappings.find(name);
    if (mapping == m_eventAttributeMappings.end()) {
        return {false, TString()};
    }
    return {true, mapping->second};
}

TarnSettings::Mappings TarnSettings::GetEventAttributeMappings() const {
    return m_eventAttributeMappings;
}

void TarnSettings::RemoveEventAttributeMapping(const TString& name) {
    const TReadWriteLock::WriteGuard guard(m_lock);
    m_eventAttributeMappings.erase(name);
}

void TarnSettings::SetEventAttributeMappingToDefaults() {
    Mappings defaults = DefaultMappings();
    const TReadWriteLock::WriteGuard guard(m_lock);
    m_eventAttributeMappings.swap(defaults);
}

}  // namespace tarn
