#include "Commands.h"
#include "Refusal.h"

namespace tavrel::tool {

// The trace ring belongs to the bundled base library; a firmware's own has a reader of its own.
void traceCommand(const std::string&) {
    throw Refusal(
        "this build writes its trace to the firmware's own service: read it with that service's tool");
}

} // namespace tavrel::tool
