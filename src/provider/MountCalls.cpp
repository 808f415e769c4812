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
         .goesOn = [call] { return call.output->isOpen(); }});
}

void callRetry(Call call) {
    Mount* const mount = mountOf(call);
    if (!mount) return;
    call.output->write(countEvent("retried", "count", mount->retry()));
    succeed(call);
}

void callUnmount(Call call) {
    Mount* const mount = mountOf(call);
    if (!mount) return;
    const Mount::Waiting queue = mount->waiting();
    if (call.arguments["wait"].uInt16Value() && queue.length > 0) {
        if (queue.length == queue.failed)
            return call.fail(cannotSynchronize(),
                             std::to_string(queue.failed) +
                                 " of the changes cannot be sent to the host; nothing is unmounted. "
                                 "See why with \"brindlemar status\".");
        if (!call.places.manager.isConnected()) return call.fail(serverUnreachable());
        constexpr auto look = std::chrono::milliseconds(200);
        if (call.output->write(countEvent("queue", "length", queue.length)))
            call.places.tasks.after(look, [call] { call.guarded(callUnmount); });
        return;
    }
    mount->hide();
    succeed(call);
}

} // namespace brindlemar
