#pragma once

#include "SmallTree.h"
#include "support/TraceExpect.h"

#include <qz/tavrel/QZException.h>
#include <qz/tavrel/ResourceManager.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace tavrel::test {

using Redirects = std::map<int, int>;

/// A store that notes in `notes` when it is locked, unlocked and deleted.
class NotingStore : public MemoryDatabase {
public:
    NotingStore(std::vector<std::string>& list, std::string ownName)
        : notes(list), called(std::move(ownName)) {}
    ~NotingStore() override { notes.push_back("delete " + called); }

    void lock() override {
        notes.push_back("lock " + called);
        if (raising) {
            throw qz::tavrel::TavrelException("no lock");
        }
    }

    void unlock() override {
        notes.push_back("unlock " + called);
        if (raising) {
            throw qz::tavrel::TavrelException("no unlock");
        }
    }

    bool raising = false;

private:
    std::vector<std::string>& notes;
    std::string called;
};

/// A registry of its own, beside that of the process.
class Registry : public testing::Test {
public:
    ~Registry() override { manager.clear(); }

protected:
    static std::string prefixed(const std::string& text) {
        char prefix[32];
        std::snprintf(prefix, sizeof prefix, "[%5d.%5d] ", getpid(), gettid());
        return prefix + text;
    }

    Redirects redirectsOf(const std::string& path) {
        Redirects found;
        manager.getRedirection(path, found);
        return found;
    }

    SmallTree tree; // outlives the registry under test, which is not the one of the process
    qz::tavrel::ResourceManager manager;
};

} // namespace tavrel::test
