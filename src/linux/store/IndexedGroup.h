// A group of objects, found by their keys without keeping the keys.
#pragma once

#include "linux/store/RecordFile.h"
#include "platform/ObjectStore.h"

#include <algorithm>
#include <limits>
#include <mutex>
#include <vector>

namespace brindlemar {

/// Thread-safe. Who needs the index first builds it, others wait until it is there.
class IndexedGroup {
public:
    struct Place {
        std::int64_t hash;
        std::size_t number;
        auto operator<=>(const Place&) const = default;
    };
    explicit IndexedGroup(std::shared_ptr<const ObjectGroup> group) : objects(std::move(group)) {}

    /// In the order of the hashes, among equal ones of the numbers: where keys repeat the last one counts.
    const std::vector<Place>& places() const {
        std::call_once(built_, [this] {
            places_.resize(objects->count());
            for (std::size_t i = 0; i < places_.size(); ++i) places_[i] = {RecordFile::hash(key(i)), i};
            std::ranges::sort(places_);
        });
        return places_;
    }
    /// None when the key is not one of the group's.
    std::optional<StoredObject> find(std::string_view wanted) const {
        const Place last{RecordFile::hash(wanted), std::numeric_limits<std::size_t>::max()};
        const std::vector<Place>& all = places();
        for (auto place = std::upper_bound(all.begin(), all.end(), last); place != all.begin();) {
            if ((--place)->hash != last.hash) break;
            if (key(place->number) == wanted) return objects->object(place->number);
        }
        return std::nullopt;
    }

    const std::shared_ptr<const ObjectGroup> objects;

private:
    std::string key(std::size_t number) const {
        std::string key;
        objects->appendKey(number, key);
        return key;
    }
    mutable std::once_flag built_;
    mutable std::vector<Place> places_;
};

} // namespace brindlemar
