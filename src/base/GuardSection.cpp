#include "base/Fault.h"
#include "base/Guards.h"
#include "base/ThreadIds.h"
#include "base/Trace.h"

#include <qz/tavrel/GuardSection.h>

namespace qz::tavrel {

namespace {

constexpr int leave = 0x7fffffff;
constexpr int nobody = -1;

} // namespace

GuardSection::GuardSection(int freshFor)
    : mutex(PTHREAD_MUTEX_INITIALIZER), interval(freshFor), level(leave), owner(nobody), deadline(0) {
    if (!clock.isAvail()) {
        internal::trace(internal::point::GuardSectionNoClock);
        internal::raise("GuardSection", "GuardSection", "ClockCounter is unavailable.");
    }
}

GuardSection::~GuardSection() {
    pthread_mutex_destroy(&mutex);
}

bool GuardSection::set(int newLevel) {
    const int caller = internal::threadId();
    const internal::MutexGuard guard(mutex);
    const bool fresh = level <= newLevel && owner == caller && deadline >= clock.getCounter();
    level = newLevel;
    owner = caller;
    if (newLevel != leave) {
        deadline = clock.calcCounter(interval);
    }
    return fresh;
}

} // namespace qz::tavrel
