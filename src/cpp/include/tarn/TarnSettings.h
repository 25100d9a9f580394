#pragma once

#include "tarn/ActivityName.h"
#include "tarn/Export.h"
#include "tarn/Traits.h"
#include "tarn/site.h"

#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/TReadWriteLock.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace tarn {

/// Which activities are switched off, and which context attributes count as attributes of the
/// request. There is one for the process; it is never destroyed. Every operation may be called on
/// any thread at any time, with the one exception that its comment names.
class TARN_EXPORT TarnSettings {
public:
    using Names = std::unordered_set<std::string>;
    using Mappings = std::unordered_map<TString, TString>;

    static TarnSettings& GetInstance();

    TarnSettings(const TarnSettings&) = delete;
    TarnSettings& operator=(const TarnSettings&) = delete;

    // ---- Activities switched off, by name (UTF-8) and by rank.

    /// Replaces the set of names and logs it as event "tarn-set-offs". The event is logged before
    /// the set takes effect and while no lock is held. A scope that begins after this has returned
    /// finds the new set.
    void SetOffs(const Names& offs);

    Names GetCopyOfOffs() const;

    /// Names separated by commas, without the white space around them. Reading ends at the first
    /// empty name ("a,,b" gives a); a name of blanks alone is not empty and gives the name "".
    static Names ParseOffActivitiesFromString(const TString& text);

    /// Scopes of a higher rank are off. 0 at start; a negative threshold switches default scopes
    /// off too.
    void SetRankOn(TraceRank rank) noexcept;
    TraceRank GetRankOn() const noexcept;

    bool IsOff(TraceRank rank) const noexcept {
        return static_cast<int32>(rank) > m_rankOn.load(std::memory_order_relaxed);
    }

    /// False for a null name. Does not look at ranks.
    bool IsOff(const char* name) const;

    /// Off by rank or by name. The name must not be null unless the rank alone is off.
    bool IsEitherOff(TraceRank rank, const char* name) const {
        return IsOff(rank) || (SomeAreOff() && IsNameOff(name));
    }

    /// The same with a name that remembers what it was told.
    bool IsEitherOff(TraceRank rank, const ActivityName& name) const {
        return IsEitherOff(rank, name.GetSite(), name.GetText());
    }

    /// The same with a place that remembers what it was told of this name, which is not null.
    bool IsEitherOff(TraceRank rank, abi::tarn_site& site, const char* name) const {
        const std::uint64_t verdict = __atomic_load_n(&site.verdict, __ATOMIC_RELAXED);
        const std::uint64_t off = __atomic_load_n(&m_verdictOff, __ATOMIC_RELAXED);
        return IsOff(rank) || ((verdict | onlyOff) == off ? verdict == off : FindOut(site, name));
    }

    // ---- Attribute names that stand for attributes of the request.

    /// Maps an attribute name to one of "rid", "sid", "site", "user", "req-desc", "wb", "vw";
    /// any other target is ignored.
    void AddEventAttributeMapping(const TString& name, const TString& target);

    /// True and the target when the name is mapped.
    std::pair<bool, TString> GetEventAttributeMapping(const TString& name) const;

    /// The whole table. Takes no lock: call it only while nobody changes the mappings.
    Mappings GetEventAttributeMappings() const;

    void RemoveEventAttributeMapping(const TString& name);

    /// Each of the seven targets mapped to itself, as at start, and nothing else.
    void SetEventAttributeMappingToDefaults();

private:
    // A name with its hash, which is worked out once for the filter and the names.
    struct HashedName {
        explicit HashedName(std::string_view name) noexcept;

        std::string_view text;
        uint64 hash;
    };

    // The names, and where they are by their hashes. A name is found without making a string of it.
    class OffNames {
    public:
        explicit OffNames(const Names& names);

        bool Contains(std::string_view text, uint64 hash) const noexcept;

        const Names& Get() const noexcept { return m_names; }

    private:
        struct Slot {
            uint64 hash = 0;
            const std::string* name = nullptr;
        };

        Names m_names;
        // A power of two of them, half of which are free at least; the bits of a hash below
        // `m_shift` do not count. A name is in its slot or in those behind it.
        std::vector<Slot> m_slots;
        unsigned m_shift = 0;
    };

    // A bit for each name that is off, by its hash: a name without its bit is on. Read without the
    // lock. While the set is replaced, a name that is off before and afterwards keeps its bit.
    class Filter {
    public:
        void Set(const Names& names) noexcept;

        bool MayContain(const HashedName& name) const noexcept {
            return (m_words[WordOf(name)].load(std::memory_order_relaxed) & BitOf(name)) != 0;
        }

    private:
        static constexpr std::size_t words = 256;

        // By bits of the better half of the hash.
        static std::size_t WordOf(const HashedName& name) noexcept { return name.hash >> 56; }

        static uint64 BitOf(const HashedName& name) noexcept {
            return uint64{1} << (name.hash >> 32) % 64;
        }

        std::array<std::atomic<uint64>, words> m_words{};
    };

    TarnSettings();
    ~TarnSettings() = default;
    static TarnSettings& Make(std::atomic<TarnSettings*>& found);

    // While no name is off, nothing else is looked at.
    bool SomeAreOff() const noexcept { return m_someAreOff.load(std::memory_order_relaxed); }

    bool IsNameOff(std::string_view name) const;
    [[gnu::visibility("hidden")]] bool IsListed(std::string_view name, uint64 hash) const;
    bool FindOut(abi::tarn_site& site, const char* name) const;

    OffNames m_offs;
    // Whether `m_offs` has any, for looking without the lock.
    std::atomic<bool> m_someAreOff{false};
    std::atomic<int32> m_rankOn{0};
    // What a place remembers of a name that is off: another number with each set. Where the name is
    // on it is the same number without this bit. Never 0 or 1: that is where nothing was asked for.
    static constexpr std::uint64_t onlyOff = 1;
    std::uint64_t m_verdictOff = 3;
    Filter m_filter;
    Mappings m_eventAttributeMappings;
    mutable TReadWriteLock m_lock;
};

}  // namespace tarn
