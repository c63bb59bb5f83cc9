#include "base/Fault.h"
#include "base/Trace.h"

#include <qz/tavrel/LockObject.h>
#include <qz/tavrel/Semaphore.h>

#include <vector>

namespace qz::tavrel {

namespace {

constexpr int setKey = 5600000;
constexpr unsigned int semaphoresOfALock = 2;
constexpr short onePlace = 1;
constexpr short allPlaces = 100;
constexpr short undo = SEM_UNDO;

static_assert(undo == 4096);

} // namespace

Semaphore SemRWLock::sem;

SemRWLock::SemRWLock(int firstNumber) : number(firstNumber) {}

SemRWLock::~SemRWLock() = default;

void SemRWLock::initialize(unsigned int count) {
    const auto limit = static_cast<unsigned int>(Semaphore::getInfo()->semmsl);
    const unsigned int wanted = count * semaphoresOfALock;
    if (count > limit / semaphoresOfALock) {
        internal::trace(internal::point::SemRWLockTooMany, wanted, limit);
        internal::raise("SemRWLock", "initialize", "lack of semaphore.");
    }
    std::vector<unsigned short> values(wanted, 0);
    for (unsigned int i = places; i < wanted; i += semaphoresOfALock) {
        values[i] = allPlaces;
    }
    sem.setUp(setKey, values.data(), wanted, Semaphore::Race::Join);
}

bool SemRWLock::operate(access_t access, short op) {
    return sem.operate(number + access, op, undo);
}

void SemRWLock::readLock() {
    operate(announcement, 0);
    operate(places, -onePlace);
}

void SemRWLock::readUnlock() {
    operate(places, onePlace);
}

void SemRWLock::writeLock() {
    operate(announcement, 1);
    operate(places, -allPlaces);
    operate(announcement, -1);
}

void SemRWLock::writeUnlock() {
    operate(places, allPlaces);
}

} // namespace qz::tavrel
