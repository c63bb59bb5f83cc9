/// @file
/// The component specification as one flat file with all names resolved, which every process maps.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace qz::tavrel {

class Builder;
class Factory;
class NameResolver;
class Specification;

// The file, in the byte order of the machine, without padding:
//
//   file_header_t
//   for each component type: compo_spec_t, then its property_spec_t, subcompo_spec_t, action_spec_t and
//     feature_spec_t, as many of each as it counts
//   compo_spec_t of name -1 and zeros: the end of the types
//   the name table: a 32-bit count, that many 32-bit offsets, the strings, each ended by a NUL; an offset
//     counts from the first byte of the strings
//
// "name" is always an index into the name table, counted from 0.

/// Opens the file.
struct file_header_t {
    char magic[4]; ///< "PMOC"
    std::uint32_t version;
};
static_assert(sizeof(file_header_t) == 8 && offsetof(file_header_t, version) == 4);

/// One component type, or the end of the types.
struct compo_spec_t {
    std::int32_t name; ///< -1 at the end of the types
    std::int32_t type;
    std::uint16_t propertyCount;
    std::uint16_t subcompoCount;
    std::uint16_t actionCount;
    std::uint16_t featureCount;
};
static_assert(sizeof(compo_spec_t) == 16 && offsetof(compo_spec_t, type) == 4 &&
              offsetof(compo_spec_t, propertyCount) == 8 && offsetof(compo_spec_t, subcompoCount) == 10 &&
              offsetof(compo_spec_t, actionCount) == 12 && offsetof(compo_spec_t, featureCount) == 14);

/// One property of a type.
struct property_spec_t {
    std::int32_t name;  ///< of the resource
    std::int32_t key;   ///< -1 when the resolver does not know the property
    std::uint32_t size; ///< in bytes
};
static_assert(sizeof(property_spec_t) == 12 && offsetof(property_spec_t, key) == 4 &&
              offsetof(property_spec_t, size) == 8);

/// The children of one type that a type has.
struct subcompo_spec_t {
    std::int32_t name;
    std::int32_t type;
    std::uint16_t count;
    std::uint16_t reserved; ///< 0
};
static_assert(sizeof(subcompo_spec_t) == 12 && offsetof(subcompo_spec_t, type) == 4 &&
              offsetof(subcompo_spec_t, count) == 8 && offsetof(subcompo_spec_t, reserved) == 10);

/// One action of a type.
struct action_spec_t {
    std::int32_t name;
    std::int32_t id; ///< -1 when the resolver does not know the action
};
static_assert(sizeof(action_spec_t) == 8 && offsetof(action_spec_t, id) == 4);

/// One feature of a type.
struct feature_spec_t {
    std::int32_t name;
    std::int32_t id;
};
static_assert(sizeof(feature_spec_t) == 8 && offsetof(feature_spec_t, id) == 4);

/// Where the records of one component type are in a mapping, with how many there are.
struct ComponentSpec {
    const compo_spec_t* compo;
    const property_spec_t* properties;
    int propertyCount;
    const subcompo_spec_t* subcompos;
    int subcompoCount;
    const action_spec_t* actions;
    int actionCount;
    const feature_spec_t* features;
    int featureCount;
};

/// Steps over records. For all record types above and `unsigned int`.
///
/// @param cursor  where the records begin; moved behind them, left where it is on failure
/// @param end     behind the last byte
/// @param out     receives the first record
/// @param count   how many there are
/// @throws TavrelException  "out of range" when they do not all lie before `end`
template <typename T>
void forward_pointer(unsigned char** cursor, unsigned char* end, T** out, int count);

/// Maps a cache file and makes the component classes of this process from it.
///
/// Nothing in the file is trusted with memory: what points outside the file ends the load, or the use of that
/// name. Nothing that is built points into the mapping, which goes with this object.
/// Locks: the caller keeps writers of the file away until `load` has returned.
/// Threads: one.
class ComponentCSVCache {
public:
    ComponentCSVCache();
    virtual ~ComponentCSVCache();
    ComponentCSVCache(const ComponentCSVCache&) = delete;
    ComponentCSVCache& operator=(const ComponentCSVCache&) = delete;

    /// Maps a file and finds its records.
    /// @return false, with a trace record of the reason, when there is no good file
    bool load(const std::string& path);

    /// Makes and adds the `ComponentClass` of every type in the file, in its order. With the environment
    /// variable "PERFORMANCE_1S" set, the search for actions is left out when there can be none.
    ///
    /// @param actionSpec  the action specification, asked only whether it is empty; may be null
    /// @param factory     makes the property locators
    /// @param builder     finds resources and actions
    /// @return true
    /// @throws TavrelException  "out of range" for a bad name; what the factory and the builder raise. The
    ///         classes made so far stay.
    bool build(Specification* actionSpec, Factory* factory, Builder* builder);

    /// Makes the class of a type and adds it. The steps below work on the class added last.
    void buildClass(ComponentSpec& spec);

    /// Gives the class its property locator, also one without properties. @throws as `build`
    void buildProperties(ComponentSpec& spec, Factory* factory, Builder* builder);

    /// Gives the class its counts of children.
    void buildComposition(ComponentSpec& spec);

    /// Gives the class those of its actions that have a definition. @throws as `build`
    void buildAction(ComponentSpec& spec, Builder* builder);

    /// Gives the class its features.
    void buildFeature(ComponentSpec& spec);

private:
    void walk();
    void release();
    std::string nameAt(int index) const;

    std::vector<ComponentSpec*> specs;
    const unsigned int* nameOffsets;
    int nameCount;
    std::map<int, int> resourceIds;
    unsigned char* mapBase;
    std::size_t mapLength;
    const char* nameBase;
};

/// Writes a component specification as a cache file. Lives for one `save`.
///
/// Locks: the caller keeps readers and other writers of the file away.
/// Threads: one.
class ComponentCSVCacheSave {
public:
    /// Neither is owned; both outlive this object.
    ComponentCSVCacheSave(Specification* spec, NameResolver* resolver);

    /// Writes the file in place, its magic text last. A failure, or the death of the process, leaves a file
    /// without it, which does not load.
    /// @return true when all was written
    bool save(const std::string& path);

    /// Appends every section of the specification, in file order, then every type that is only named as a
    /// sub-component with a positive count.
    void getComponentNames(std::vector<std::string>& out);

    /// Index of a name in the name table, to which a new one is added.
    int getNameId(const std::string& name);

    /// Give the records of one type, in the order of their rows; `compo` gets name and type alone. The
    /// vectors are appended to.
    void buildClass(const std::string& name, compo_spec_t& compo);
    void buildProperties(const std::string& name, std::vector<property_spec_t>& properties);
    void buildComposition(const std::string& name, std::vector<subcompo_spec_t>& subcompos);
    void buildAction(const std::string& name, std::vector<action_spec_t>& actions);
    void buildFeature(const std::string& name, std::vector<feature_spec_t>& features);

private:
    void writeTo(std::FILE* file);

    Specification* spec;
    NameResolver* resolver;
    std::vector<std::string> names;
};

} // namespace qz::tavrel
