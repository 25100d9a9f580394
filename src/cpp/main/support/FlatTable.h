#pragma once

#include "cvlcoreplatform/TString.h"

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tarn {

/// An insertion-ordered map from names to values: linear search while there are few, as in nearly
/// every scope, a hash index beyond.
template <class Value>
class FlatTable {
public:
    struct Entry {
        TString name;
        Value value;
    };

    using const_iterator = typename std::vector<Entry>::const_iterator;

    FlatTable() noexcept = default;
    FlatTable(FlatTable&&) noexcept = default;
    FlatTable& operator=(FlatTable&&) noexcept = default;
    ~FlatTable() = default;

    FlatTable(const FlatTable& other)
        : m_entries(other.m_entries),
          m_index(other.m_index != nullptr ? std::make_unique<Index>(*other.m_index) : nullptr) {}

    FlatTable& operator=(const FlatTable& other) {
        FlatTable copy(other);
        return *this = std::move(copy);
    }

    FlatTable(std::initializer_list<Entry> entries) {
        for (const Entry& entry : entries) {
            Set(entry.name, entry.value);
        }
    }

    /// The value of the name becomes `value`, whether there was one or not.
    void Set(const TString& name, Value value) {
        if (Value* const known = Find(name)) {
            *known = std::move(value);
            return;
        }
        m_entries.push_back({name, std::move(value)});
        if (m_entries.size() > mostUnindexed) {
            AddToIndex();
        }
    }

    /// Null for a name that has no value.
    const Value* Find(const TString& name) const {
        if (m_entries.size() > mostUnindexed) {
            const auto known = m_index->find(name);
            return known == m_index->end() ? nullptr : &m_entries[known->second].value;
        }
        const std::u16string_view text = name.View();
        for (const Entry& entry : m_entries) {
            if (entry.name.SharedCharacters() == name.SharedCharacters() ||
                (entry.name.Length() == text.size() && entry.name.View() == text)) {
                return &entry.value;
            }
        }
        return nullptr;
    }

    Value* Find(const TString& name) { return const_cast<Value*>(std::as_const(*this).Find(name)); }

    /// Keeps the memory for the next values.
    void Clear() noexcept {
        m_entries.clear();
        m_index.reset();
    }

    /// Forgets the values, and keeps no more memory than for a handful of them.
    void Release() noexcept {
        Clear();
        if (m_entries.capacity() > mostUnindexed) {
            m_entries = {};
        }
    }

    bool IsEmpty() const noexcept { return m_entries.empty(); }

    std::size_t Size() const noexcept { return m_entries.size(); }

    // NOLINTBEGIN(readability-identifier-naming): named by the language

    const_iterator begin() const noexcept { return m_entries.begin(); }

    const_iterator end() const noexcept { return m_entries.end(); }

    // NOLINTEND(readability-identifier-naming)

private:
    static constexpr std::size_t mostUnindexed = 16;

    using Index = std::unordered_map<TString, std::size_t>;

    // The index holds all entries once there are too many to look at.
    void AddToIndex() {
        try {
            if (m_index == nullptr) {
                m_index = std::make_unique<Index>();
            }
            for (std::size_t i = m_index->size(); i < m_entries.size(); ++i) {
                m_index->emplace(m_entries[i].name, i);
            }
        } catch (...) {
            m_entries.pop_back();
            if (m_entries.size() <= mostUnindexed) {
                m_index.reset();
            }
            throw;
        }
    }

    std::vector<Entry> m_entries;
    std::unique_ptr<Index> m_index;
};

}  // namespace tarn
