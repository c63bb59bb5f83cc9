#pragma once

#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentLockProvider.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace tavrel::test {

/// A lock provider that locks nothing, writes down what it is asked for, and can be told to raise.
class RecordingProvider : public qz::tavrel::ComponentLockProvider {
public:
    /// "readLock 3" and so on: the operation and the component's id.
    std::vector<std::string> calls;

    /// Called with each call before it is written down: let it throw to make the call fail.
    std::function<void(const std::string& call)> before;

    void initialize() override {}
    void readLock(qz::tavrel::Component* component) override { note("readLock", component); }
    void readUnlock(qz::tavrel::Component* component) override { note("readUnlock", component); }
    void writeLock(qz::tavrel::Component* component) override { note("writeLock", component); }
    void writeUnlock(qz::tavrel::Component* component) override { note("writeUnlock", component); }

    using ComponentLockProvider::configure;
    using ComponentLockProvider::write;

private:
    void note(const char* operation, qz::tavrel::Component* component) {
        const std::string call = std::string(operation) + " " + std::to_string(component->getComponentId());
        if (before) {
            before(call);
        }
        const std::lock_guard<std::mutex> guard(mutex);
        calls.push_back(call);
    }

    std::mutex mutex;
};

} // namespace tavrel::test
