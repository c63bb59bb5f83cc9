/// @file
/// Names and their numbers: component types, action ids, property keys and a client's own values.
#pragma once

#include <istream>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace qz::tavrel {

/// One dictionary: names with their numbers, in the order in which they came.
///
/// A name never changes its number; two names may share one.
/// Threads: one at a time while names are added, any afterwards.
class NameResolverDictionary {
public:
    /// Makes an empty dictionary; its first added name gets number 1.
    NameResolverDictionary();

    /// The name of `value`, the newest one where several share it. @return empty when there is none
    std::string getName(int value);

    /// The number of `name`. @return -1 when it is unknown
    int getValue(const std::string& name);

    /// Gives `name` its number. A name that has another number already keeps it, and a trace record tells
    /// both.
    void setValue(const std::string& name, int value);

    /// Gives `name` the number after the highest one so far. @return that number
    int addName(const std::string& name);

    /// Adds the entries that the stream holds: their count, then for each its name and its number, parted by
    /// white space. Ends early when the stream runs dry. @return `stream`
    std::istream& read(std::istream& stream);

    /// Writes the count of names, then each name and its number in order of entry, one item a line.
    /// @return `stream`
    std::ostream& write(std::ostream& stream);

    /// A line "name:number" for each name, in order of entry.
    std::string toString();

private:
    std::map<std::string, int> names;
    std::vector<std::string> order;
    int lastValue;
};

/// Maps names to numbers and back, in numbered dictionaries.
///
/// Dictionary 0 holds component types and features, 1 action ids, 2 property keys; all others belong to the
/// client. A client gives its numbers to the system by a subclass that fills the tables, or that overrides
/// the lookups; by the set operations; or by `load`. Only component types are numbered on the fly. Names hold
/// no white space. Nothing here raises: an unknown name is -1, an unknown number an empty name.
///
/// Threads: no lock. Filled while the system is built and read afterwards; a lookup of an unknown component
/// type adds it, and a lookup in dictionary 0, 1 or 2 makes that dictionary when it is missing, so such
/// lookups take one thread at a time.
class NameResolver {
public:
    /// Handle on a dictionary, which is made at its first use. A copy is a dictionary of its own.
    class Dictionary {
    public:
        Dictionary();
        ~Dictionary();
        Dictionary(const Dictionary& other);
        Dictionary& operator=(Dictionary other) noexcept;

        /// The dictionary itself, made now if it is missing. Never null; it lives as long as this handle.
        NameResolverDictionary* impl();

        /// Each does what the operation of its name in NameResolverDictionary does.
        std::string getName(int value);
        int getValue(const std::string& name);
        void setValue(const std::string& name, int value);
        int addName(const std::string& name);
        std::istream& read(std::istream& stream);
        std::ostream& write(std::ostream& stream);
        std::string toString();

    private:
        std::unique_ptr<NameResolverDictionary> dictionary;
    };

    /// Makes dictionary 0 with "NullComponent" = 0 and "Exclusive" = 1, and dictionary 1 with
    /// "NoOperation" = 0.
    NameResolver();
    virtual ~NameResolver();
    NameResolver(const NameResolver&) = delete;
    NameResolver& operator=(const NameResolver&) = delete;

    /// Number of a component type or a feature. An unknown name is added with the next free number.
    virtual int getComponentType(const std::string& name);

    /// Name of a component type or a feature. @return empty when it is unknown
    virtual std::string getComponentName(int type);

    /// Number of an action. @return -1, with a trace record, when the name is unknown
    virtual int getActionId(const std::string& name);

    /// Name of an action. @return empty when it is unknown
    virtual std::string getActionName(int id);

    /// Number of a property. @return -1, with a trace record, when the name is unknown
    virtual int getPropertyKey(const std::string& name);

    /// Name of a property. @return empty when it is unknown
    virtual std::string getPropertyName(int key);

    /// Number of `name` in any dictionary; makes none.
    /// @return -1 when the dictionary or the name is missing
    virtual int getValue(int dictionary, const std::string& name);

    /// Name of `value` in any dictionary; makes none.
    /// @return empty when the dictionary or the value is missing
    virtual std::string getName(int dictionary, int value);

    /// Give a name its number in dictionary 0, 1, 2 or any one. A name that has a number already keeps it.
    void setComponentType(const std::string& name, int value);
    void setActionId(const std::string& name, int value);
    void setPropertyKey(const std::string& name, int value);
    void setDictionaryEntry(int dictionary, const std::string& name, int value);

    /// Writes all dictionaries as text, one item a line: their count; for each, in ascending order, its
    /// number and what NameResolverDictionary::write gives. @return `stream`
    std::ostream& write(std::ostream& stream);

    /// Replaces all dictionaries, the initial entries included, by what `write` has written. Ends early when
    /// the stream runs dry. @return `stream`
    std::istream& read(std::istream& stream);

    /// Writes all dictionaries to a file, replacing what it held.
    /// @return bytes written; 0 for an empty path; -1 when the file cannot be written
    int save(const std::string& path);

    /// Replaces all dictionaries by those of a file; one that cannot be read leaves them as they were.
    /// @return position behind the last entry, in bytes; 0 for an empty path; -1 when the file cannot be
    /// read,
    ///         or holds less than it says
    int load(const std::string& path);

    /// Dictionaries 0, 1 and 2 as text for people.
    std::string toString();

private:
    std::map<int, Dictionary> dictionaries;
};

} // namespace qz::tavrel
