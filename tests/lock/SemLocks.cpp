#include "lock/SemLocks.h"

#include <sys/sem.h>

#include <algorithm>
#include <utility>

namespace tavrel::test {

namespace {

int set() {
    return semget(semLockKey, 0, 0);
}

TreeParts lockedBy(qz::tavrel::ComponentLockProvider* provider) {
    TreeParts parts;
    parts.provider = provider;
    return parts;
}

} // namespace

std::vector<unsigned short> semaphoreValues() {
    semid_ds state{};
    if (semctl(set(), 0, IPC_STAT, &state) == -1) {
        return {};
    }
    std::vector<unsigned short> values(state.sem_nsems);
    semctl(set(), 0, GETALL, values.data());
    return values;
}

std::vector<unsigned short> startValues() {
    std::vector<unsigned short> values(allSemaphores, 100);
    for (std::size_t i = 3; i < values.size(); i += 4) {
        values[i] = 0;
    }
    return values;
}

std::vector<int> valuesOf(int lockId) {
    std::vector<int> values;
    for (int access = 0; access < 4; ++access) {
        values.push_back(semctl(set(), 4 * lockId + access, GETVAL));
    }
    return values;
}

int sleepersAt(int number) {
    return semctl(set(), number, GETNCNT) + semctl(set(), number, GETZCNT);
}

int sleepers() {
    int count = 0;
    for (int number = 0; number < 20; ++number) {
        count += sleepersAt(number);
    }
    return count;
}

void change(int number, int op) {
    sembuf record{static_cast<unsigned short>(number), static_cast<short>(op), SEM_UNDO | IPC_NOWAIT};
    EXPECT_EQ(0, semop(set(), &record, 1)) << number << " by " << op;
}

SemLockedTree::SemLockedTree()
    : machine(lockedBy(new SemLockProvider)),
      provider(static_cast<SemLockProvider&>(*machine.provider)),
      root(nullptr) {
    machine.define(marked, "Marked").addFeature(1);
    root = machine.root(fan);
    upper = TreeFixture::add(root, marked);
    middle = TreeFixture::add(upper, fan);
    leaf = TreeFixture::add(middle, marked);
    below = TreeFixture::add(leaf, fan);
    beside = TreeFixture::add(root, marked);
    plain = TreeFixture::add(root, fan);
    provider.initialize();
}

OperationLog::OperationLog(std::function<int(Operation)> operationAnswer)
    : answer(std::move(operationAnswer)),
      plain("semop", [this](const KernelCall& call) { return note(call); }),
      timed("semtimedop",
            [this](const KernelCall& call) {
                limits.push_back(call.arguments[3]);
                return note(call);
            }),
      sleeps("usleep", [this](const KernelCall& call) {
          pauses.push_back(call.arguments[0]);
          return KernelStandIn::succeed;
      }) {}

int OperationLog::note(const KernelCall& call) {
    const auto* const record = static_cast<const sembuf*>(call.data);
    EXPECT_EQ(1, call.arguments[2]);
    EXPECT_EQ(4096, record->sem_flg);
    done.emplace_back(record->sem_num, record->sem_op);
    return answer(done.back());
}

} // namespace tavrel::test
