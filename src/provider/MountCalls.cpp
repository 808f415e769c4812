#include "provider/CallRows.h"

#include "provider/EventText.h"
#include "provider/mount/Mount.h"

namespace brindlemar {

namespace {
/// The mount, or none when the service shows none; the call has failed then.
Mount* mountOf(const Call& call) {
    if (!call.places.mount)
        call.fail(featureUnsupported(), "The service shows no mount. Restart it without \"--no-mount\".");
    return call.places.mount;
}

void succeed(const Call& call) { call.output->write(completionEvent(nullptr, std::nullopt)); }

constexpr auto kLook = std::chrono::milliseconds(200);
constexpr int kPatience = 100; // looks at which nothing has moved

/// `last`: how much waited at the last look.
void unmount(Call call, std::int64_t last, int looks) {
    Mount* const mount = mountOf(call);
    if (!mount) return;
    const bool waits = call.arguments["wait"].uInt16Value() != 0;
    const Mount::Waiting queue = waits ? mount->waiting() : Mount::Waiting();
    if (queue.length == 0) {
        mount->hide();
        return succeed(call);
    }
    looks = queue.length == last && !queue.isAtWork ? looks + 1 : 0;
    const bool isStuck = looks > kPatience;
    if (queue.length == queue.failed || (isStuck && queue.failed > 0))
        return call.fail(cannotSynchronize(), std::to_string(queue.failed) +
                                                  " of the changes cannot be sent to the host; nothing is unmounted. "
                                                  "See why with \"brindlemar status\".");
    if (!call.places.manager.isConnected()) return call.fail(serverUnreachable());
    if (isStuck && !queue.written.empty())
        return call.fail(cannotSynchronize(),
                         "Programs are writing to files, of which the host hears once they are closed, or synced and "
                         "left alone; nothing is unmounted. See which with \"brindlemar status\".");
    if (isStuck)
        return call.fail(cannotSynchronize(),
                         "Nothing has been sent for a while; nothing is unmounted. See why with \"brindlemar doctor\" "
                         "and in the service's log.");
    if (call.output->write(countEvent("queue", "length", queue.length)))
        call.places.tasks.after(kLook, [call, last = queue.length, looks] {
            call.guarded([=](Call again) { unmount(std::move(again), last, looks); });
        });
}
} // namespace

void callEvict(Call call) {
    Mount* const mount = mountOf(call);
    if (!mount) return;
    mount->evict(call.text("path"), [call](const Mount::Freed& freed, const auto& error) {
        if (error) return call.fail(*error);
        call.output->write(evictedEvent(freed.files, freed.bytes, freed.kept));
        succeed(call);
    });
}

void callBring(Call call) {
    Mount* const mount = mountOf(call);
    if (!mount) return;
    mount->bring(
        call.text("path"),
        {.progress = [call](std::int64_t done, std::int64_t known) { call.output->write(progressEvent(done, known)); },
         .end = [call](const auto& error) { call.output->write(completionEvent(nullptr, error)); },
         .whenGone = [call](auto stop) { call.output->onReaderGone(std::move(stop)); }});
}

void callRetry(Call call) {
    Mount* const mount = mountOf(call);
    if (!mount) return;
    call.output->write(countEvent("retried", "count", mount->retry()));
    succeed(call);
}

void callUnmount(Call call) { unmount(std::move(call), 0, 0); }

} // namespace brindlemar
