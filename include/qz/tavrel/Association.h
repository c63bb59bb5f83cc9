/// @file
/// Links between ids, free of cycles and kept in a store.
#pragma once

#include <qz/tavrel/Configuration.h>

#include <set>
#include <unordered_map>
#include <vector>

namespace qz::tavrel {

/// A directed graph over ids that stays free of cycles. What a link means is its owner's affair.
///
/// Body of the stored value, every integer 4 bytes big-endian: the number of sources; then for each source,
/// ascending, its id, the number of its destinations, and these in the order of adding. A source whose links
/// have all been removed is stored with no destinations, and does not come back.
///
/// Nothing here raises on its own: a link that is refused leaves a trace record, and the caller cannot tell.
/// Locks: none of its own.
/// Threads: one at a time, as the caller's locks provide.
class Association : public Configuration {
public:
    Association();
    ~Association() override;

    /// As `Configuration::load`; leaves a trace record when it replaces a state that had been loaded before.
    unsigned int load() override;

    /// As `Configuration::save`; leaves a trace record when the store took the state.
    unsigned int save() override;

    /// Replaces the links by those of a stored body. The sources of a destination come back in ascending
    /// order, whatever order they were added in. Stored cycles are taken as they are; reading ends with the
    /// stream, whatever the counts say.
    std::istream& read(std::istream& stream) override;

    std::ostream& write(std::ostream& stream) override;

    /// Appends the destinations of `src` in the order of adding. @param out  is not emptied first
    virtual void get(int src, std::vector<int>& out);

    /// Appends the sources of `dst` in the order of adding. @param out  is not emptied first
    virtual void getSrcs(int dst, std::vector<int>& out);

    /// The first source of `dst`; -1 if it has none.
    virtual int getSrc(int dst);

    /// Inserts every source and every destination. @param out  is not emptied first
    virtual void getAll(std::set<int>& out);

    /// Adds a link and marks this object modified. Refused, with a trace record, when the ids are equal or
    /// one is negative, when the link would close a cycle, and when `dst` can be reached from `src` already,
    /// directly or through others.
    virtual void add(int src, int dst);

    /// Adds a link to each of `dsts` in order.
    virtual void add(int src, std::vector<int>& dsts);

    /// Removes a link. Marks this object modified unless `src` is unknown, also when there was no such link.
    virtual void remove(int src, int dst);

    /// Removes the links that leave `src`, and marks this object modified unless `src` is unknown. Links that
    /// lead to it stay.
    virtual void removeAll(int src);

    /// Removes every link; marks this object modified unless no source is known.
    virtual void clear();

    /// True if `dst` can be reached from `src` along one link or several.
    bool isDepend(int src, int dst);

private:
    using Links = std::unordered_map<int, std::vector<int>>;

    Links targets;
    Links sources;
};

} // namespace qz::tavrel
