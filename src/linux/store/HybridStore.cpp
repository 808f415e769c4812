#include "linux/store/HybridStore.h"

#include "linux/ports/PortAddress.h"

#include <filesystem>
#include <future>
#include <system_error>
#include <utility>

namespace brindlemar {

namespace {

constexpr std::size_t kMostWaiting = 4'000'000; // objects

struct OneObject final : ObjectGroup {
    OneObject(std::string_view key, StoredObject object) : key_(key), object_(std::move(object)) {}
    std::size_t count() const override { return 1; }
    void appendKey(std::size_t, std::string& key) const override { key += key_; }
    StoredObject object(std::size_t) const override { return object_; }

    const std::string key_;
    const StoredObject object_;
};

auto groupOf(std::string_view key, StoredObject object) {
    return std::make_shared<IndexedGroup>(std::make_shared<OneObject>(key, std::move(object)));
}

} // namespace

HybridStore::HybridStore(Setup setup, Clock& clock, QueueTimers& timers)
    : setup_(std::move(setup)), clock_(clock), queue_(timers, "item store") {
    RecordFile::remove(setup_.path);
    everySecond_ = queue_.repeat(std::chrono::seconds(1), [this] { tidy(); });
}

StoredObject HybridStore::object(std::string_view key) {
    std::vector<Entry> candidates; // the first that has the key has its latest write
    std::unique_lock lock(mutex_);
    const auto& [singles, groups] = state_.memory;
    const auto single = singles.find(std::string(key));
    for (auto group = groups.rbegin(); group != groups.rend(); ++group)
        if (single == singles.end() || group->number > single->second.number) candidates.push_back(*group);
    if (single != singles.end()) candidates.push_back(single->second);
    const SharedFile file = state_.file;
    const std::uint64_t last = state_.last;
    lock.unlock();
    for (const Entry& entry : candidates)
        if (const auto object = entry.group->find(key)) return entry.expiry > clock_.now() ? *object : nullptr;
    return file ? fromFile(key, file, last) : nullptr;
}

/// Kept in memory unless something was written in the meantime, or still waits to be, that might hide it.
StoredObject HybridStore::fromFile(std::string_view key, const SharedFile& file, std::uint64_t last) {
    std::optional<RecordFile::Record> record;
    try {
        record = file->find(key);
    } catch (const RecordFile::Error& error) {
        abandon(file, error);
    }
    if (!record || !record->hasValue || record->expiry <= clock_.now()) return nullptr;
    StoredObject object = setup_.coder.decode(record->value);
    std::lock_guard lock(mutex_);
    if (!object || state_.last != last || state_.written != last) return object;
    state_.written = ++state_.last;
    state_.memory.singles.emplace(key, Entry{groupOf(key, object), record->expiry, state_.last});
    return object;
}

void HybridStore::setObject(StoredObject object, std::string_view key, Timestamp expiry) {
    put(groupOf(key, std::move(object)), expiry, std::string(key));
}

void HybridStore::setObjects(std::shared_ptr<const ObjectGroup> group, Timestamp expiry) {
    put(std::make_shared<IndexedGroup>(std::move(group)), expiry, std::nullopt);
}

void HybridStore::put(SharedGroup group, Timestamp expiry, const std::optional<std::string>& key) {
    std::lock_guard lock(mutex_);
    if (state_.waiting >= kMostWaiting) empty();
    state_.waiting += group->objects->count();
    Entry entry{std::move(group), expiry, ++state_.last};
    if (key)
        state_.garbage.push_back(std::exchange(state_.memory.singles[*key], std::move(entry)).group);
    else
        state_.memory.groups.push_back(std::move(entry));
}

void HybridStore::removeAll() {
    std::lock_guard lock(mutex_);
    empty();
}

/// Under the lock. What is being written ends in the file that goes here.
void HybridStore::empty() {
    state_.garbage.push_back(std::make_shared<Memory>(std::exchange(state_.memory, {})));
    state_.garbage.push_back(std::exchange(state_.file, nullptr));
    state_.written = ++state_.last;
    state_.waiting = 0;
}

void HybridStore::abandon(const SharedFile& file, const RecordFile::Error& error) {
    {
        std::lock_guard lock(mutex_);
        if (state_.file == file) state_.garbage.push_back(std::exchange(state_.file, nullptr));
    }
    std::call_once(reported_, setup_.diagnostic, std::string("An item cache lost its file: ") + error.what());
}

void HybridStore::settle() {
    std::promise<void> done;
    queue_.async([&] {
        tidy();
        done.set_value();
    });
    done.get_future().wait();
}

std::string HybridStores::filePath(std::string_view storeName) const {
    return directory_ + "/" + portFileName(storeName) + ".store";
}

std::unique_ptr<ObjectStore> HybridStores::make(StoreConfiguration configuration, ObjectCoder coder) {
    std::error_code ignored;
    std::filesystem::create_directories(directory_, ignored);
    std::filesystem::permissions(directory_, std::filesystem::perms::owner_all, ignored);
    std::string path = filePath(configuration.name);
    HybridStore::Setup setup{std::move(configuration), std::move(coder), std::move(path), diagnostic_};
    try {
        return std::make_unique<HybridStore>(std::move(setup), clock_, timers_);
    } catch (const std::system_error&) { // no thread
        return nullptr;
    }
}

} // namespace brindlemar
