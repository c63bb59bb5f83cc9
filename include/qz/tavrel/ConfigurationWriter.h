/// @file
/// A tree as text, for people.
#pragma once

#include <qz/tavrel/ComponentVisitor.h>

#include <cstdint>
#include <ostream>

namespace qz::tavrel {

/// Prints a line for each component of a walk and one for each of its properties, indented by depth.
///
/// A component: "Fan #0 (id:12 type:3)". A property, with keys below 256 as well:
/// "  +--- Speed (key:300 size:4 res:tavrel.db)".
/// Threads: one a writer.
class ConfigurationWriter : public AbstractVisitor {
public:
    /// Owned children alone, to the standard output.
    ConfigurationWriter();

    /// @param ownedOnly  true: owned children alone; false: shared ones behind them
    /// @param stream     where the lines go; must outlive the writer
    ConfigurationWriter(bool ownedOnly, std::ostream& stream);

    ~ConfigurationWriter() override;

    bool doTopDown(Component* component) override;
    bool doBottomUp(Component* component) override;

    /// Replaces the options: 1 for component lines, 2 for property lines; 3 at first.
    void setOption(unsigned long options);

    /// Prints the line of one component.
    void writeComponent(Component* component);

    /// Prints the lines of the properties of one component; none if its type has no class.
    void writeProperties(Component* component);

private:
    std::uint32_t options;
    std::ostream* stream;
    std::int32_t depth;
};

} // namespace qz::tavrel
