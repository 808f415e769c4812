#include "linux/Diagnostic.h"

#include "linux/queues/QueueTimers.h"
#include "support/Guarded.h"

#include <cstdint>
#include <map>
#include <string>

namespace brindlemar {

namespace {

constexpr std::uint64_t kMost = 5;
constexpr std::chrono::seconds kWindow{1};

class Limit : public std::enable_shared_from_this<Limit> {
public:
    Limit(Diagnostic say, QueueTimers& timers) : say_(std::move(say)), timers_(timers) {}
    ~Limit() {
        for (const auto& [kind, count] : counts_.copy()) sayRest(kind, count);
    }

    void take(std::string_view sentence) {
        const std::string kind(sentence.substr(0, sentence.find(':')));
        if (!counts_.with([&](const auto& counts) { return counts.contains(kind); }))
            timers_.at(deadlineAfter(kWindow), [weak = weak_from_this(), kind] {
                if (const auto self = weak.lock()) self->endWindow(kind);
            });
        if (counts_.with([&](auto& counts) { return ++counts[kind]; }) <= kMost) say_(sentence);
    }

private:
    void endWindow(const std::string& kind) {
        const auto ended = counts_.with([&](auto& counts) { return counts.extract(kind); });
        if (ended) sayRest(kind, ended.mapped());
    }
    void sayRest(const std::string& kind, std::uint64_t count) const {
        if (count > kMost) say_(std::to_string(count - kMost) + " more were left out: " + kind);
    }

    const Diagnostic say_;
    QueueTimers& timers_;
    Guarded<std::map<std::string, std::uint64_t>> counts_; // since the first sentence of the kind, within a window
};

} // namespace

Diagnostic limited(Diagnostic say, QueueTimers& timers) {
    return [limit = std::make_shared<Limit>(std::move(say), timers)](std::string_view sentence) {
        try {
            limit->take(sentence);
        } catch (const std::exception&) { // no memory for a word about it
        }
    };
}

} // namespace brindlemar
