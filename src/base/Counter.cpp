#include "base/Guards.h"
#include "base/ThreadIds.h"

#include <qz/tavrel/Counter.h>

#include <algorithm>

namespace qz::tavrel {

using internal::MutexGuard;
using internal::threadId;

Counter::Counter() : mutex(PTHREAD_MUTEX_INITIALIZER) {}

Counter::~Counter() {
    pthread_mutex_destroy(&mutex);
}

Counter::Entry* Counter::find(int thread) {
    const auto found = std::find_if(counts.begin(), counts.end(),
                                    [thread](const Entry& entry) { return entry.first == thread; });
    return found == counts.end() ? nullptr : &*found;
}

Counter::Entry& Counter::findOrMake(int thread) {
    Entry* const found = find(thread);
    return found != nullptr ? *found : counts.emplace_back(thread, 0);
}

int Counter::up() {
    const int caller = threadId();
    const MutexGuard guard(mutex);
    return ++findOrMake(caller).second;
}

int Counter::down() {
    const int caller = threadId();
    const MutexGuard guard(mutex);
    Entry* const entry = find(caller);
    if (entry == nullptr) {
        return 0;
    }
    const int left = --entry->second;
    if (left == 0) {
        *entry = counts.back();
        counts.pop_back();
    }
    return left;
}

int Counter::count() {
    const int caller = threadId();
    const MutexGuard guard(mutex);
    return findOrMake(caller).second;
}

void Counter::clear() {
    const int caller = threadId();
    const MutexGuard guard(mutex);
    findOrMake(caller).second = 0;
}

void Counter::clearAll() {
    const MutexGuard guard(mutex);
    counts.clear();
}

} // namespace qz::tavrel
