// What peers do wrong, told to the log.
#pragma once

#include <functional>
#include <string_view>

namespace brindlemar {

class QueueTimers;

/// Gets one sentence for the log, on any thread; must not throw and must not call back into whoever tells it. What
/// stands before the first colon, if there is one, says what kind of thing it is about.
using Diagnostic = std::function<void(std::string_view)>;

/// Passes on five sentences of a kind a second, so that no peer floods the log, and when there were more says a second
/// later how many were left out. The timers outlive the result and its copies; `say` is called on their thread, too.
Diagnostic limited(Diagnostic say, QueueTimers& timers);

} // namespace brindlemar
