#pragma once

#include <string>
#include <vector>

namespace qz::tavrel {
class Component;
}

namespace tavrel::bench {

constexpr int valueKey = 300; ///< the one property of every component, 4 bytes

/// A started process on a machine of a given size: a root, and below it three levels, so that leaves are at
/// depth 4.
class Machine {
public:
    /// @param components  64 or 4096, all in the tree
    explicit Machine(int components);
    ~Machine();
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    /// A component at depth 4.
    qz::tavrel::Component* leaf() const { return leaves[leaves.size() / 2]; }
    const std::vector<qz::tavrel::Component*>& all() const { return everything; }

private:
    std::vector<qz::tavrel::Component*> everything;
    std::vector<qz::tavrel::Component*> leaves;
};

/// Writes a specification of `types` types and a properties file that names it. @return path of the
/// properties file
std::string writeSpecification(int types);

/// Starts the process from a properties file, as every process does.
void start(const std::string& propertiesFile);

/// Removes the cache of all specifications, so that the next start parses.
void removeCaches();

} // namespace tavrel::bench
