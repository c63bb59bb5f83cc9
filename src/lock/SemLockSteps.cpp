#include "base/ThreadIds.h"

#include <qz/tavrel/SemLockProvider.h>

#include <unistd.h>

#include <chrono>
#include <random>

namespace qz::tavrel {

namespace {

constexpr short onePlace = 1;
constexpr short allPlaces = 100;
constexpr short undo = SEM_UNDO;
constexpr std::chrono::milliseconds patience{200};
constexpr std::chrono::microseconds longestPause{20000};

static_assert(undo == 4096);

/// Lets two calls that have got into each other's way come back at different moments.
void pauseAtRandom() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    std::seed_seq seed{static_cast<unsigned int>(now), static_cast<unsigned int>(internal::threadId())};
    std::minstd_rand random(seed);
    std::uniform_int_distribution<useconds_t> pause(0, static_cast<useconds_t>(longestPause.count()));
    usleep(pause(random));
}

/// Collects the steps of a lock in their order.
template <typename Step>
class StepList {
public:
    using access_t = SemLockProvider::access_t;

    explicit StepList(const std::vector<int>& way) : ids(way) {}

    StepList& own(access_t access, int op) { return add(ids.front(), access, op); }

    StepList& ancestorsFromNearest(access_t access, int op) {
        for (auto id = ids.begin() + 1; id != ids.end(); ++id) {
            add(*id, access, op);
        }
        return *this;
    }

    StepList& ancestorsFromRoot(access_t access, int op) {
        for (auto id = ids.rbegin(); id != ids.rend() - 1; ++id) {
            add(*id, access, op);
        }
        return *this;
    }

    std::vector<Step> done() { return std::move(steps); }

private:
    StepList& add(int id, access_t access, int op) {
        steps.push_back({id, access, static_cast<short>(op)});
        return *this;
    }

    const std::vector<int>& ids;
    std::vector<Step> steps;
};

} // namespace

int SemLockProvider::getSemNum(int id, access_t access) {
    return id * 4 + access;
}

bool SemLockProvider::operate(int id, access_t access, short op) {
    return semaphores.operate(getSemNum(id, access), op, undo);
}

/// Does steps that can wait, up to one that waits too long. What the kernel refuses counts as done, but not
/// as taken. @return false if one has waited too long
bool SemLockProvider::tryAll(const Steps& taking, Steps& taken) {
    for (const Step& step : taking) {
        const auto outcome =
            semaphores.operateWithin(patience, getSemNum(step.id, step.access), step.op, undo);
        if (outcome == Semaphore::Outcome::TooLate) {
            return false;
        }
        if (outcome == Semaphore::Outcome::Done) {
            taken.push_back(step);
        }
    }
    return true;
}

/// Does steps that do not wait.
void SemLockProvider::operateAll(const Steps& steps) {
    for (const Step& step : steps) {
        operate(step.id, step.access, step.op);
    }
}

/// Takes a lock. A call above and one beneath can each hold what the other wants next; the one that has
/// waited too long lets the other pass.
void SemLockProvider::lock(const Steps& taking, const Steps& finishing) {
    Steps taken;
    taken.reserve(taking.size());
    while (!tryAll(taking, taken)) {
        for (; !taken.empty(); taken.pop_back()) {
            const Step& step = taken.back();
            if (step.op != 0) {
                operate(step.id, step.access, static_cast<short>(-step.op));
            }
        }
        pauseAtRandom();
    }
    operateAll(finishing);
}

// If the process dies between two steps, the kernel undoes what it has done so far, set by set. What another
// call sees of a part of it only makes it wait until the rest is undone.

void SemLockProvider::readLock(Component* component) {
    const std::vector<int> ids = begin(component);
    const Steps taking = StepList<Step>(ids)
                             .own(announcement, 0)
                             .ancestorsFromNearest(announcement, 0)
                             .own(gate, -allPlaces)
                             .ancestorsFromNearest(thisNode, -onePlace)
                             .own(thisNode, -onePlace)
                             .own(subtreeReaders, -onePlace)
                             .ancestorsFromNearest(subtreeReaders, -onePlace)
                             .done();
    const Steps finishing =
        StepList<Step>(ids).ancestorsFromRoot(thisNode, onePlace).own(gate, allPlaces).done();

    lock(taking, finishing);
}

void SemLockProvider::readUnlock(Component* component) {
    const std::vector<int> ids = end(component);
    if (!ids.empty()) {
        operateAll(StepList<Step>(ids)
                       .ancestorsFromRoot(subtreeReaders, onePlace)
                       .own(subtreeReaders, onePlace)
                       .own(thisNode, onePlace)
                       .done());
    }
    endUnlock();
}

void SemLockProvider::writeLock(Component* component) {
    const std::vector<int> ids = begin(component);
    const Steps announcing =
        StepList<Step>(ids).own(announcement, 1).ancestorsFromNearest(announcement, 1).done();
    const Steps taking = StepList<Step>(ids)
                             .own(gate, -allPlaces)
                             .own(subtreeReaders, -allPlaces)
                             .ancestorsFromNearest(thisNode, -allPlaces)
                             .own(thisNode, -allPlaces)
                             .ancestorsFromNearest(gate, -onePlace)
                             .done();
    const Steps finishing = StepList<Step>(ids)
                                .own(subtreeReaders, allPlaces)
                                .own(gate, allPlaces - onePlace)
                                .ancestorsFromRoot(thisNode, allPlaces)
                                .ancestorsFromRoot(announcement, -1)
                                .own(announcement, -1)
                                .done();

    operateAll(announcing);
    lock(taking, finishing);
}

void SemLockProvider::writeUnlock(Component* component) {
    const std::vector<int> ids = end(component);
    if (!ids.empty()) {
        operateAll(StepList<Step>(ids)
                       .ancestorsFromRoot(gate, onePlace)
                       .own(gate, onePlace)
                       .own(thisNode, allPlaces)
                       .done());
    }
    endUnlock();
}

} // namespace qz::tavrel
