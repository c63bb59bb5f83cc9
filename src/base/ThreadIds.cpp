#include "base/ThreadIds.h"

#include <pthread.h>
#include <unistd.h>

namespace qz::internal {

namespace {

struct Ids {
    int pid;
    int tid;
};

// Small enough for the room that the loader keeps for this model, which needs no call to find the variable.
[[gnu::tls_model("initial-exec")]] thread_local Ids ids{0, 0};

void forgetIds() {
    // Only the thread that forked lives on in the child, so its own copy is the only one to forget.
    ids = {0, 0};
}

// When the library is loaded, so that nothing is left to register or to allocate when the first id is asked
// for.
[[maybe_unused]] const int registered = pthread_atfork(nullptr, nullptr, forgetIds);

void fetchIds() {
    ids = {getpid(), gettid()};
}

} // namespace

int processId() {
    if (ids.pid == 0) {
        fetchIds();
    }
    return ids.pid;
}

int threadId() {
    if (ids.tid == 0) {
        fetchIds();
    }
    return ids.tid;
}

} // namespace qz::internal
