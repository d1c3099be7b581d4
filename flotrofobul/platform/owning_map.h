// SPDX-License-Identifier: MIT
// The map behind the registry of requests and the nodes that a server knows. Internal.
#pragma once

#include <QtCore/QMap>

#include <memory>
#include <utility>

namespace comunication {

/// A map that owns its records. It holds raw pointers, because hosts are given the QMap inside it or a copy; where a
/// host may delete records itself, Pointer is QPointer<Record>.
template <typename Key, typename Record, typename Pointer = Record*>
class owning_map_t {
public:
    using map_t = QMap<Key, Pointer>;

    owning_map_t() = default;
    ~owning_map_t() { clear(); }
    owning_map_t(const owning_map_t&) = delete;
    owning_map_t& operator=(const owning_map_t&) = delete;

    map_t& map() { return records; }
    const map_t& map() const { return records; }

    /// The record under a key, or null.
    Record* find(const Key& key) const { return records.value(key, nullptr); }

    /// Stores a record under a key and returns the one that it replaces, which is deleted unless the caller keeps it.
    std::unique_ptr<Record> put(const Key& key, std::unique_ptr<Record> record)
    {
        Pointer& place = records[key];
        std::unique_ptr<Record> former(place);
        place = record.release();
        return former;
    }

    /// Removes and deletes a record; returns 1, or 0 if there is none.
    int remove(const Key& key)
    {
        const auto entry = records.find(key);
        if (entry == records.end() || *entry == nullptr) {
            return 0;
        }
        const std::unique_ptr<Record> record(*entry); // deleted once the map no longer holds it
        records.erase(entry);
        return 1;
    }

    /// Takes over all records of another map.
    template <typename Other>
    void takeAll(owning_map_t<Key, Record, Other>& other)
    {
        const auto taken = std::exchange(other.map(), {});
        for (auto entry = taken.cbegin(); entry != taken.cend(); ++entry) {
            put(entry.key(), std::unique_ptr<Record>(entry.value()));
        }
    }

    /// Removes and deletes every record.
    void clear()
    {
        const map_t gone = std::exchange(records, {});
        for (const Pointer& record : gone) {
            delete record;
        }
    }

private:
    map_t records;
};

} // namespace comunication
