#pragma once

#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <vector>

namespace tavrel::test {

/// A number of child processes that run one body and are let go at the same moment.
class Children {
public:
    /// @param body  gets the child's index, from 0; starts when `go` is called
    Children(int count, const std::function<int(int)>& body) {
        children.reserve(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) {
            children.push_back(std::make_unique<ChildProcess>([i, &body](Talk& talk) {
                talk.tell('r');
                return talk.waitFor('g') ? body(i) : 1;
            }));
        }
        for (const auto& child : children) {
            child->talk().waitFor('r');
        }
    }

    /// Lets all children go.
    void go() {
        for (const auto& child : children) {
            child->talk().tell('g');
        }
    }

    ChildProcess& operator[](std::size_t index) { return *children[index]; }

    /// Waits until all have ended, and expects that each has returned 0.
    void expectSuccess() {
        for (const auto& child : children) {
            EXPECT_EQ(0, child->wait());
        }
    }

private:
    std::vector<std::unique_ptr<ChildProcess>> children;
};

} // namespace tavrel::test
