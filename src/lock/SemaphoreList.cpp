#include "base/Fault.h"

#include <qz/tavrel/Semaphore.h>

#include <algorithm>
#include <cstdlib>

namespace qz::tavrel {

namespace {

unsigned int semaphoresInASet() {
    return static_cast<unsigned int>(Semaphore::getInfo()->semmsl);
}

} // namespace

SemaphoreList::SemaphoreList() : flag(IPC_CREAT | IPC_EXCL | 0666), keyOffset(1) {}

SemaphoreList::SemaphoreList(int key, unsigned short* values, unsigned int count) : SemaphoreList() {
    initialize(key, values, count);
}

SemaphoreList::~SemaphoreList() = default;

void SemaphoreList::setFlag(int createFlag) {
    flag = createFlag;
    for (Semaphore& set : sets) {
        set.setFlag(createFlag);
    }
}

void SemaphoreList::initialize(int key, unsigned short* values, unsigned int count) {
    setUp(key, values, count, Semaphore::Race::Raise);
}

void SemaphoreList::setUp(int key, unsigned short* values, unsigned int count, Semaphore::Race race) {
    const unsigned int most = semaphoresInASet();
    if (most == 0) {
        internal::raise("Semaphore", "initialize", "sem is unavailable.");
    }
    Semaphore unset;
    unset.setFlag(flag);
    sets.assign(count / most + (count % most != 0 ? 1 : 0), unset);

    // Keys wrap like the system's 32-bit key_t.
    auto nextKey = static_cast<unsigned int>(key);
    for (Semaphore& set : sets) {
        const unsigned int size = std::min(most, count);
        set.setUp(static_cast<int>(nextKey), values, size, race);
        nextKey += keyOffset;
        values += size;
        count -= size;
    }
}

bool SemaphoreList::operate(int number, short op, short operationFlag) {
    const auto place = std::div(number, static_cast<int>(semaphoresInASet()));
    return sets[static_cast<unsigned int>(place.quot)].operate(place.rem, op, operationFlag);
}

Semaphore::Outcome SemaphoreList::operateWithin(std::chrono::nanoseconds limit, int number, short op,
                                                short operationFlag) {
    const auto place = std::div(number, static_cast<int>(semaphoresInASet()));
    return sets[static_cast<unsigned int>(place.quot)].operateWithin(limit, place.rem, op, operationFlag);
}

void SemaphoreList::remove() {
    for (Semaphore& set : sets) {
        set.remove();
    }
}

} // namespace qz::tavrel
