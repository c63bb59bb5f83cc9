#pragma once

#include "Start.h"

#include <memory>
#include <string>
#include <vector>

namespace qz::tavrel {
class Builder;
class NameResolver;
} // namespace qz::tavrel

namespace tavrel::tool {

class ToolFactory;

/// How a start went.
struct StartReport {
    enum class Kind { Built, Joined, Migrated };

    Kind kind = Kind::Joined;
    std::string storedVersion;     ///< as it was found; empty: none
    std::string configuredVersion; ///< empty: the tree is built at each start
    std::string cache;             ///< path of the specification cache
    bool cacheFound = false;
    std::string
        structure; ///< after a migration: how a fresh tree would differ from this one; empty: not at all
    std::vector<std::string>
        changes; ///< after a migration: a line for each property whose stored values changed
};

/// What a session may do to the tree that it finds.
enum class Entry {
    Start, ///< build it, or migrate it to the configured version
    Join   ///< only build it where there is none yet, as any process does that comes first
};

/// The tree in this process: started as any client starts, torn down at the end. One at a time.
class Session {
public:
    /// Checks all input, then builds the tree or joins it.
    /// @param notes  receives lines about input that has no effect, and about what only shows at the start
    /// @throws WrongUsage, Refusal  as `checkStart`; the start is not possible, or `entry` does not allow
    /// what it
    ///                              needs
    Session(const StartFiles& files, Entry entry, std::vector<std::string>& notes);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    const StartReport& report() const { return started; }

    /// Exclusive upper limit of component ids.
    int maxCount() const { return input.max; }

    /// Compares the tree in memory with the stored one: a store that refuses a save does not say so.
    /// @throws Refusal  they differ
    void requireStored() const;

    static qz::tavrel::NameResolver& names();

    /// Names of the types that have a class, in the order of the names file.
    static std::vector<std::string> typeNames();

private:
    void start(Entry entry, std::vector<std::string>& notes);
    void build(qz::tavrel::Builder& builder, Entry entry, std::vector<std::string>& notes);
    void requireEntry(Entry entry) const;
    void checkRoot() const;

    StartInput input;
    std::unique_ptr<ToolFactory> factory;
    StartReport started;
};

} // namespace tavrel::tool
