#pragma once

#include "cvlsys/IntegerTypes.h"

#include <array>
#include <cstddef>
#include <unordered_map>
#include <utility>

namespace tarn {

/// 64-bit FNV-1a over the eight bytes of an id, lowest byte first.
struct IdHash {
    std::size_t operator()(uint64 id) const noexcept {
        uint64 hash = 0xCBF29CE484222325;
        for (int shift = 0; shift < 64; shift += 8) {
            hash = (hash ^ ((id >> shift) & 0xFF)) * 0x100000001B3;
        }
        return hash;
    }
};

/// Records by id. A handler asks for the same few records again and again: those that were asked
/// for last are found without a search. References stay valid until the record is taken out.
template <class Record>
class RecordTable {
public:
    using Map = std::unordered_map<uint64, Record, IdHash>;
    using Node = typename Map::node_type;

    /// Null for an id that is not there.
    Record* Find(uint64 id) {
        Known& known = m_known[id % m_known.size()];
        if (known.record != nullptr && known.id == id) {
            return known.record;
        }
        const auto found = m_records.find(id);
        if (found == m_records.end()) {
            return nullptr;
        }
        known = {id, &found->second};
        return known.record;
    }

    /// Leaves what is known of the last ones as it is: any number of threads may ask at once.
    const Record* Find(uint64 id) const {
        const auto found = m_records.find(id);
        return found == m_records.end() ? nullptr : &found->second;
    }

    /// The record of the id, made if there is none, and whether it was made.
    std::pair<Record*, bool> FindOrMake(uint64 id) {
        const auto [place, isNew] = m_records.try_emplace(id);
        return {&place->second, isNew};
    }

    /// A record outside the table: one that was taken out, with the memory that it has, else a new
    /// one.
    Node TakeSpare() {
        if (!m_spare.empty()) {
            return std::move(m_spare);
        }
        Map one;
        one.try_emplace(0);
        return one.extract(one.begin());
    }

    /// For the next `TakeSpare`; an empty node does no harm.
    void KeepSpare(Node&& node) noexcept { m_spare = std::move(node); }

    /// Puts the record into the table, in the place of one with the same id.
    Record& Put(uint64 id, Node&& node) {
        node.key() = id;
        auto inserted = m_records.insert(std::move(node));
        if (!inserted.inserted) {
            inserted.position->second = std::move(inserted.node.mapped());
        }
        return inserted.position->second;
    }

    /// The record of the id, out of the table; empty for an id that is not there.
    Node TakeOut(uint64 id) noexcept {
        Known& known = m_known[id % m_known.size()];
        if (known.id == id) {
            known = {};
        }
        return m_records.extract(id);
    }

    std::size_t Size() const noexcept { return m_records.size(); }

    /// Calls `action` with every record, in no order.
    template <class Action>
    void ForEach(const Action& action) const {
        for (const auto& [id, record] : m_records) {
            action(record);
        }
    }

private:
    struct Known {
        uint64 id = 0;
        Record* record = nullptr;
    };

    Map m_records;
    Node m_spare;
    std::array<Known, 8> m_known;
};

}  // namespace tarn
