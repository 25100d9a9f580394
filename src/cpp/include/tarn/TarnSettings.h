#pragma once

#include "tarn/ActivityName.h"
#include "tarn/Export.h"
#include "tarn/Traits.h"

#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/TReadWriteLock.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

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
        const uint64 verdict = name.m_verdict.load(std::memory_order_relaxed);
        return IsOff(rank) ||
               (verdict >> 1 == m_generation.load(std::memory_order_relaxed) ? (verdict & 1) != 0
                                                                             : FindOut(name));
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
    // A name with its hash, which is worked out once for the filter and the set.
    struct HashedName {
        explicit HashedName(std::string_view name) noexcept;

        std::string_view text;
        uint64 hash;
    };

    // A name is found without making a string of it.
    struct NameHash {
        using is_transparent = void;

        std::size_t operator()(const HashedName& name) const noexcept {
            return static_cast<std::size_t>(name.hash);
        }

        std::size_t operator()(std::string_view name) const noexcept {
            return (*this)(HashedName(name));
        }
    };

    struct NameEqual {
        using is_transparent = void;

        bool operator()(const HashedName& a, std::string_view b) const noexcept;

        bool operator()(std::string_view a, std::string_view b) const noexcept { return a == b; }
    };

    using OffNames = std::unordered_set<std::string, NameHash, NameEqual>;

    // A bit for each name that is off, by its hash: a name without its bit is on. Read without the
    // lock. While the set is replaced, a name that is off before and afterwards keeps its bit.
    class Filter {
    public:
        void Set(const OffNames& names) noexcept;

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
    bool FindOut(const ActivityName& name) const;

    OffNames m_offs;
    // Whether `m_offs` has any, for looking without the lock.
    std::atomic<bool> m_someAreOff{false};
    std::atomic<int32> m_rankOn{0};
    // Which set it is: another one with each that is set.
    std::atomic<uint64> m_generation{1};
    Filter m_filter;
    Mappings m_eventAttributeMappings;
    mutable TReadWriteLock m_lock;
};

}  // namespace tarn
