#include "provider/mount/ParkedRequests.h"

#include "linux/sqlite/Database.h"
#include "support/Guarded.h"
#include "support/Logger.h"

#include <cerrno>
#include <shared_mutex>
#include <system_error>
#include <unordered_map>
#include <vector>

namespace brindlemar {

namespace {
/// By number: libfuse may call for a request that is being answered at the same moment.
struct Parked {
    std::uint64_t last = 0;
    std::unordered_map<std::uint64_t, std::weak_ptr<ParkedRequest>> requests;
    int refusal = 0; // for new ones, unless it is 0
};
Guarded<Parked>& parked() {
    static Guarded<Parked> all;
    return all;
}
/// Held while a request is answered, which may park another; alone by whoever answers all.
std::shared_mutex answering;
thread_local int depth = 0;
struct Answering {
    Answering() {
        if (depth++ == 0) answering.lock_shared();
    }
    ~Answering() {
        if (--depth == 0) answering.unlock_shared();
    }
};
} // namespace

void answerOrFail(fuse_req_t request, const std::function<void()>& body) {
    int number = EIO;
    try {
        return body();
    } catch (const ErrorNumber& error) {
        number = error.number;
    } catch (const std::system_error& error) {
        number = error.code().value();
    } catch (const sqlite::Error& error) {
        number = error.isFull() ? ENOSPC : EIO;
        LogScope(Logger::shared(), "answerOrFail(_:_:)").error(error.what());
    } catch (const std::exception& error) {
        LogScope(Logger::shared(), "answerOrFail(_:_:)").error(error.what());
    }
    fuse_reply_err(request, number);
}

std::shared_ptr<ParkedRequest> ParkedRequest::park(fuse_req_t request, Queue& tasks) {
    const std::shared_ptr<ParkedRequest> made(new ParkedRequest(request, tasks));
    const int refusal = parked().with([&](Parked& all) {
        made->number_ = ++all.last;
        all.requests[made->number_] = made;
        return all.refusal;
    });
    if (refusal != 0) made->fail(refusal);
    return made;
}

ParkedRequest::~ParkedRequest() {
    fail(EIO);
    parked().with([&](Parked& all) { all.requests.erase(number_); });
}

void ParkedRequest::answer(const Body& body) {
    const Answering lock;
    if (!answered_.exchange(true)) answerOrFail(request_, [&] { body(request_); });
}

void ParkedRequest::fail(int error) {
    const Answering lock;
    if (!answered_.exchange(true)) fuse_reply_err(request_, error);
}

void ParkedRequest::failAll(int error) {
    std::vector<std::shared_ptr<ParkedRequest>> all; // longer than the lock, which the end of the last pointer takes
    std::unique_lock lock(answering);
    ++depth;
    all = parked().with([&](Parked& everything) {
        std::vector<std::shared_ptr<ParkedRequest>> alive;
        for (const auto& [number, request] : everything.requests)
            if (auto one = request.lock()) alive.push_back(std::move(one));
        return alive;
    });
    for (const auto& request : all) request->fail(error);
    --depth;
}

void ParkedRequest::refuse(int error) {
    parked().with([&](Parked& all) { all.refusal = error; });
    failAll(error);
}

void ParkedRequest::admit() {
    parked().with([](Parked& all) { all.refusal = 0; });
}

void ParkedRequest::onInterruption(std::function<void()> handler) {
    handler_ = std::move(handler);
    const Answering lock;
    if (answered_) return; // with all others
    const auto onInterrupt = [](fuse_req_t, void* number) {
        const auto request = parked().with([&](Parked& all) {
            const auto found = all.requests.find(reinterpret_cast<std::uintptr_t>(number));
            return found == all.requests.end() ? nullptr : found->second.lock();
        });
        // libfuse holds the request's lock here.
        if (request) request->tasks_.async([request] { request->interrupted(); });
    };
    fuse_req_interrupt_func(request_, onInterrupt, reinterpret_cast<void*>(number_));
}

void ParkedRequest::interrupted() {
    if (answered_) return;
    if (handler_) handler_();
    fail(EINTR);
}

} // namespace brindlemar
