#include "Commands.h"
#include "Paths.h"
#include "Session.h"
#include "Snapshot.h"
#include "TreeForms.h"
#include "Values.h"

#include <iostream>

namespace tavrel::tool {

namespace {

std::string join(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : ", ") + word;
    }
    return text;
}

/// @param first  what stands before the component's own line
/// @param rest   what stands before all lines below it
void print(std::ostream& out, const ComponentState& state, const std::string& first,
           const std::string& rest) {
    out << first << state.type << '#' << state.number << "  id " << state.id << "  type " << state.typeNumber;
    out << (state.features.empty() ? "" : "  [" + join(state.features) + "]") << '\n';

    const bool below = !state.children.empty() || !state.shared.empty();
    for (const PropertyValue& property : state.properties) {
        out << rest << (below ? "│   " : "    ") << property.name << " = "
            << (property.bytes.empty() ? "unreadable" : describe(property.bytes)) << "  (" << property.store
            << ")\n";
    }
    std::size_t left = state.children.size() + state.shared.size();
    for (const ComponentState& child : state.children) {
        --left;
        print(out, child, rest + (left > 0 ? "├── " : "└── "), rest + (left > 0 ? "│   " : "    "));
    }
    for (const std::string& path : state.shared) {
        --left;
        out << rest << (left > 0 ? "├┄┄ " : "└┄┄ ") << "shares " << path << '\n';
    }
}

} // namespace

void treeCommand(const std::string& path, TreeForm form, bool withProperties) {
    const ComponentState top = snapshot(findComponent(Session::names(), path), withProperties);
    switch (form) {
    case TreeForm::Text:
        print(std::cout, top, "", "");
        break;
    case TreeForm::Json:
        printJson(std::cout, top, withProperties);
        break;
    case TreeForm::Dot:
        printDot(std::cout, top);
        break;
    }
}

} // namespace tavrel::tool
