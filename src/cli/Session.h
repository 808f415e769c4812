// What a command works with.
#pragma once

#include "cli/Control.h"
#include "cli/Failure.h"
#include "cli/Output.h"
#include "cli/Temporaries.h"

#include <atomic>
#include <memory>

namespace brindlemar::cli {

/// All of it outlives the session.
struct Surroundings {
    /// A connection to the service for one thread, whose calls end early once the descriptor `stop` is readable; -1 for
    /// never. Throws Failure. Any thread.
    std::function<std::unique_ptr<Control>(int stop)> connect;
    Output& output;
    Notices& notices;
    Temporaries& temporaries;
};

class Session {
public:
    Session(const Surroundings& surroundings, bool json)
        : output(surroundings.output), notices(surroundings.notices), temporaries(surroundings.temporaries), json(json),
          surroundings_(surroundings) {}

    /// The main thread's connection, made when it is first asked for.
    Control& control() {
        if (!control_) control_ = connect(-1);
        return *control_;
    }
    std::unique_ptr<Control> connect(int stop) const { return surroundings_.connect(stop); }

    Output& output;
    Notices& notices;
    Temporaries& temporaries;
    const bool json; // one object a line, as the service tells it

    /// Says what failed while the command goes on with the rest. Any thread.
    void complain(const Failure& failure) {
        notices.say(failure.what());
        Exit none = Exit::ok;
        exit_.compare_exchange_strong(none, failure.exit);
    }
    /// The command's exit so far: that of the first complaint.
    Exit exit() const { return exit_; }

private:
    const Surroundings& surroundings_;
    std::unique_ptr<Control> control_;
    std::atomic<Exit> exit_{Exit::ok};
};

} // namespace brindlemar::cli
