#include "provider/CallRows.h"

#include "provider/EventText.h"
#include "provider/mount/Mount.h"

namespace brindlemar {

namespace {
/// The mount, or none when the service shows none; the call has failed then.
Mount* mountOf(const Call& call) {
    if (!call.places.mount) call.fail(featureUnsupported());
    return call.places.mount;
}

void succeed(const Call& call) { call.output->write(completionEvent(nullptr, std::nullopt)); }
} // namespace

void callEvict(Call call) {
    Mount* const mount = mountOf(call);
    if (!mount) return;
    const auto freed = mount->evict(call.text("path"));
    if (!freed) return call.fail(noSuchItem());
    call.output->write(evictedEvent(freed->files, freed->bytes));
    succeed(call);
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
    const std::int64_t waiting = mount->waiting();
    if (call.arguments["wait"].uInt16Value() && waiting > 0) {
        constexpr auto look = std::chrono::milliseconds(200);
        if (call.output->write(countEvent("queue", "length", waiting)))
            call.places.tasks.after(look, [call] { callUnmount(call); });
        return;
    }
    mount->hide();
    succeed(call);
}

} // namespace brindlemar
