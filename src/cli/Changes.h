// What the commands that change items share.
#pragma once

#include "cli/Events.h"

#include <ctime>

namespace brindlemar::cli {

/// Makes the service forget its listings before and after the body, also when that throws.
template <class Body>
void changing(Control& control, const Body& body) {
    struct Forget {
        explicit Forget(Control& control) : control(control) { tell(); }
        ~Forget() { tell(); }
        void tell() const {
            control.call("forget", {}, [](std::string_view) { return true; });
        }
        Control& control;
    } forget(control);
    body();
}

/// A date as the service takes it, "1659538288.500000000".
std::string dateText(const timespec& time);

/// Makes a folder and gives its identifier; `path` is what the user knows it by. Throws Failure.
std::string makeFolder(Control& control, const std::string& parent, const std::string& name,
                       const std::string& modified, const std::string& path);

} // namespace brindlemar::cli
