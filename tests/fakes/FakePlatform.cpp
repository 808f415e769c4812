#include "fakes/FakePlatform.h"

#include "messaging/BxMessages.h"
#include "messaging/MessageLogger.h"

namespace brindlemar {

void FakeManager::reconnect(ErrorHandler handler) {
    calls.with([](auto& list) { list.push_back("reconnect"); });
    handler(answer);
}

void FakeManager::disconnect(std::string reason, unsigned options, ErrorHandler handler) {
    calls.with([&](auto& list) { list.push_back("disconnect " + reason + " " + std::to_string(options)); });
    handler(answer);
}

void FakeManager::getUserVisibleURL(std::string_view,
                                    std::function<void(std::optional<FileURL>, std::optional<NSError>)> handler) {
    handler(FileURL{"/visible"}, std::nullopt);
}

void FakeManager::signalEnumerator(std::string_view container, ErrorHandler handler) {
    calls.with([&](auto& list) { list.push_back("signal " + std::string(container)); });
    handler(answer);
}

std::shared_ptr<NSFileProviderManager> FakeManagers::manager(const NSFileProviderDomain& domain) {
    const auto found = known.find(domain.identifier);
    return found == known.end() ? nullptr : found->second;
}

class FakeStore final : public ObjectStore {
public:
    FakeStore(FakeStores& stores, std::string name, ObjectCoder coder)
        : stores_(stores), name_(std::move(name)), coder_(std::move(coder)) {}

    StoredObject object(std::string_view key) override {
        const auto found = entries_.find(std::string(key));
        if (found == entries_.end() || found->second.second <= stores_.clock.now()) return nullptr;
        if (!stores_.decodes) return found->second.first;
        std::string bytes;
        coder_.encode(found->second.first, bytes);
        return coder_.decode(bytes);
    }
    void setObject(StoredObject object, std::string_view key, Timestamp expiry) override {
        entries_[std::string(key)] = {std::move(object), expiry};
    }
    void setObjects(std::shared_ptr<const ObjectGroup> group, Timestamp expiry) override {
        for (std::size_t i = 0; i < group->count(); ++i) {
            std::string key;
            group->appendKey(i, key);
            setObject(group->object(i), key, expiry);
        }
    }
    void removeAll() override {
        entries_.clear();
        stores_.emptied.push_back(name_);
    }
    void removeExpiredObjects() override {}

private:
    FakeStores& stores_;
    const std::string name_;
    const ObjectCoder coder_;
    std::map<std::string, std::pair<StoredObject, Timestamp>> entries_;
};

std::unique_ptr<ObjectStore> FakeStores::make(StoreConfiguration configuration, ObjectCoder coder) {
    if (failing.contains(configuration.name)) return nullptr;
    return std::make_unique<FakeStore>(*this, configuration.name, std::move(coder));
}

std::unique_ptr<LogDestination> FakeLog::file(const RotatingLogFile&) {
    struct Destination final : LogDestination {
        explicit Destination(decltype(FakeLog::lines) shared) : lines(std::move(shared)) {}
        void write(std::string_view line, bool) override {
            lines->with([&](auto& list) { list.emplace_back(line); });
        }
        void flush() override {}
        decltype(FakeLog::lines) lines;
    };
    return std::make_unique<Destination>(lines);
}

FakePlatform::FakePlatform() {
    manager = managers.known[std::string(ExtensionBundleIdentifier)] = std::make_shared<FakeManager>();
    Platform::install({clock, mainQueue, backgroundQueue, tasks, ports, managers, xpc, files, stores, log});
}

FakePlatform::~FakePlatform() {
    settle();
    BxMessages::reset();
    resetMessageLogger();
    Logger::reset();
}

void FakePlatform::settle() {
    while (tasks.runAll() + mainQueue.runAll() + backgroundQueue.runAll() > 0) {
    }
}

std::vector<std::string> FakePlatform::logged(std::string_view level) {
    const auto lines = log.lines->with([](auto& list) { return std::exchange(list, {}); });
    std::vector<std::string> found;
    for (const std::string& line : lines) {
        const auto field = [&](std::string_view key, std::string_view end) {
            const std::size_t start = line.find(key) + key.size();
            return line.substr(start, line.find(end, start) - start);
        };
        const std::string name = field(" level=", " ");
        if (level.empty() || level == name) found.push_back(name + " " + field(" msg=\"", "\" thread="));
    }
    return found;
}

std::vector<std::string> FakePlatform::managerCalls() {
    return manager->calls.with([](auto& list) { return std::exchange(list, {}); });
}

} // namespace brindlemar
