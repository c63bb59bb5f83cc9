#include "base/Guards.h"
#include "base/ThreadIds.h"

#include <qz/tavrel/Counter.h>

namespace qz::tavrel {

using internal::MutexGuard;
using internal::threadId;

Counter::Counter() : mutex(PTHREAD_MUTEX_INITIALIZER) {}

Counter::~Counter() {
    pthread_mutex_destroy(&mutex);
}

int Counter::up() {
    const MutexGuard guard(mutex);
    return ++counts[threadId()];
}

int Counter::down() {
    const MutexGuard guard(mutex);
    const auto entry = counts.find(threadId());
    if (entry == counts.end()) {
        return 0;
    }
    const int left = --entry->second;
    if (left == 0) {
        counts.erase(entry);
    }
    return left;
}

int Counter::count() {
    const MutexGuard guard(mutex);
    return counts[threadId()];
}

void Counter::clear() {
    const MutexGuard guard(mutex);
    counts[threadId()] = 0;
}

void Counter::clearAll() {
    const MutexGuard guard(mutex);
    counts.clear();
}

} // namespace qz::tavrel
