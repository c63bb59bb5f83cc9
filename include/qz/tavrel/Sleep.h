/// @file
/// An action that waits.
#pragma once

#include <qz/tavrel/Action.h>

#include <string>
#include <vector>

namespace qz::tavrel {

/// Lets the calling thread wait, between two actions of a list for example.
class Sleep : public Action {
public:
    Sleep();
    ~Sleep() override;

    /// Takes the first cell, the time in milliseconds; without cells the time stays as it is, 0 at first.
    ///
    /// @return 1, or 0 without cells
    int setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) override;

    /// Waits for the time. In microseconds it has 32 bits, so that times of 4294968 ms (71 minutes) and more
    /// come out shorter, by multiples of 2^32 microseconds. A signal that the thread handles ends the wait
    /// early.
    ///
    /// Locks: none; what the caller holds it holds through the wait.
    void execute(Component* target, int actionId, const void* in, unsigned int inSize, void* out,
                 unsigned int outSize) override;

    /// "Sleep".
    std::string toString() override;

    /// The time, in milliseconds.
    unsigned int getTime();

private:
    unsigned int time;
};

} // namespace qz::tavrel
