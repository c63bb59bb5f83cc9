#include "Commands.h"
#include "Paths.h"
#include "Refusal.h"
#include "Sections.h"
#include "Session.h"
#include "Snapshot.h"
#include "Values.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <map>

namespace tavrel::tool {

namespace {

volatile std::sig_atomic_t interrupted = 0;

void interrupt(int) {
    interrupted = 1;
}

/// Ends the watch at its next look. A second signal ends the process, also while it waits for the tree.
void catchSignals() {
    struct sigaction action = {};
    action.sa_handler = interrupt;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

void pause(int milliseconds) {
    const timespec time{milliseconds / 1000, (milliseconds % 1000) * 1000000L};
    nanosleep(&time, nullptr); // a signal cuts it short
}

/// Every component of a subtree by its path.
using Watched = std::map<std::string, ComponentState>;

void flatten(ComponentState state, Watched& watched) {
    std::vector<ComponentState> children;
    children.swap(state.children);
    watched.emplace(state.path, std::move(state));
    for (ComponentState& child : children) {
        flatten(std::move(child), watched);
    }
}

/// The subtree as it is now; nothing while there is none.
Watched look(const std::string& path) {
    const TreeSection section;
    Watched watched;
    try {
        flatten(snapshot(findComponent(Session::names(), path), true), watched);
    } catch (const Refusal&) {
        watched.clear();
    }
    return watched;
}

void say(char mark, const std::string& text) {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm local{};
    localtime_r(&seconds, &local);
    char time[32];
    const std::size_t length = std::strftime(time, sizeof time, "%H:%M:%S", &local);
    std::snprintf(time + length, sizeof time - length, ".%03d", static_cast<int>(milliseconds));
    std::cout << time << ' ' << mark << ' ' << text << std::endl;
}

std::string idOf(const ComponentState& state) {
    return state.path + " (id " + std::to_string(state.id) + ")";
}

void compareProperties(const ComponentState& before, const ComponentState& after) {
    for (std::size_t i = 0; i < after.properties.size(); ++i) {
        const PropertyValue& value = after.properties[i];
        const std::string old = i < before.properties.size() ? before.properties[i].bytes : std::string();
        if (old != value.bytes) {
            say('=', after.path + ' ' + value.name + ' ' + describe(old) + " -> " + describe(value.bytes));
        }
    }
}

void compareShared(const ComponentState& before, const ComponentState& after) {
    for (const std::string& path : after.shared) {
        if (std::find(before.shared.begin(), before.shared.end(), path) == before.shared.end()) {
            say('+', after.path + " shares " + path);
        }
    }
    for (const std::string& path : before.shared) {
        if (std::find(after.shared.begin(), after.shared.end(), path) == after.shared.end()) {
            say('-', after.path + " no longer shares " + path);
        }
    }
}

void compare(const Watched& before, const Watched& after) {
    for (const auto& [path, state] : before) {
        if (after.count(path) == 0) {
            say('-', idOf(state));
        }
    }
    for (const auto& [path, state] : after) {
        const auto old = before.find(path);
        if (old == before.end()) {
            say('+', idOf(state));
            continue;
        }
        if (old->second.revision != state.revision || old->second.id != state.id) {
            say('~', idOf(state) + " is another component: revision " + std::to_string(old->second.revision) +
                         " -> " + std::to_string(state.revision));
        }
        compareProperties(old->second, state);
        compareShared(old->second, state);
    }
}

} // namespace

void watchCommand(const std::string& path, int interval) {
    findComponent(Session::names(), path); // refuses what is not there
    catchSignals();
    Watched before = look(path);
    std::cout << "watching " << before.size() << (before.size() == 1 ? " component" : " components")
              << " from " << path << "; interrupt to end" << std::endl;
    while (interrupted == 0) {
        pause(interval);
        Watched after = look(path);
        compare(before, after);
        before.swap(after);
    }
}

} // namespace tavrel::tool
