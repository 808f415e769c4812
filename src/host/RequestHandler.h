// Requests of the extension over one served directory: text in, texts out.
#pragma once

#include "host/Misbehaviour.h"
#include "host/Turns.h"
#include "host/commands/Commands.h"

namespace brindlemar::host {

/// Thread-safe. Lives as long as any reply function it was given.
class RequestHandler {
public:
    /// Where requests are carried out. They outlive the handler.
    struct Queues {
        Queue& workers;
        Queue& copiers; // few at a time: the disk gains nothing from more
    };
    RequestHandler(std::unique_ptr<Served> served, Queues queues, Misbehaviour& misbehaviour)
        : served_(std::move(served)), queues_(queues), misbehaviour_(misbehaviour) {}

    /// Has the request carried out on a queue: "{}" is the reply to one that is not understood. Requests for one item
    /// keep the order of the calls; see Turns.
    void handle(std::string_view request, Reply reply);

private:
    void carryOut(const CommandRow& row, const JSON& request, const Reply& reply);

    const std::unique_ptr<Served> served_;
    const Queues queues_;
    Misbehaviour& misbehaviour_;
    Turns turns_; // by item ID
};

} // namespace brindlemar::host
