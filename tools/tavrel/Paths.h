#pragma once

#include <string>
#include <vector>

namespace qz::tavrel {
class Component;
class NameResolver;
} // namespace qz::tavrel

namespace tavrel::tool {

/// One step of a path as it was typed.
struct Step {
    std::string type;
    int number;
};

/// The steps of the text form of a `TreePath`, which itself takes any text and adds unknown names to the
/// resolver.
/// @throws WrongUsage  the text has another form
/// @throws Refusal  a number is too large
std::vector<Step> parseSteps(const std::string& text);

/// The text form of steps.
std::string toText(const std::vector<Step>& steps);

/// The component at a path; "/" alone is the root.
/// @throws WrongUsage  the path has another form
/// @throws Refusal  a type is unknown, or nothing is there
qz::tavrel::Component* findComponent(qz::tavrel::NameResolver& names, const std::string& text);

/// The text form of the path to a component.
std::string pathOf(qz::tavrel::Component* component);

} // namespace tavrel::tool
