#pragma once

#include <qz/tavrel/Action.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace tavrel::test {

/// What one `execute` was given: target, action id, input and its size, output and its size.
using Call = std::tuple<qz::tavrel::Component*, int, const void*, unsigned int, void*, unsigned int>;

/// What became of the actions of a test, oldest first.
struct ActionLog {
    std::vector<std::string> ran;
    std::vector<Call> calls;
    std::vector<std::string> deleted;
};

/// An action that writes down what happens to it.
class RecordingAction : public qz::tavrel::Action {
public:
    RecordingAction(ActionLog& into, std::string itsName) : log(into), name(std::move(itsName)) {}
    ~RecordingAction() override { log.deleted.push_back(name); }

    void execute(qz::tavrel::Component* target, int actionId, const void* in, unsigned int inSize, void* out,
                 unsigned int outSize) override {
        log.ran.push_back(name);
        log.calls.emplace_back(target, actionId, in, inSize, out, outSize);
    }

    std::string toString() override { return name; }

private:
    ActionLog& log;
    std::string name;
};

} // namespace tavrel::test
