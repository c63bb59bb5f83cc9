#include "TreeForms.h"

namespace tavrel::tool {

namespace {

/// A text as Graphviz takes it.
std::string quoted(const std::string& text) {
    std::string result = "\"";
    for (const char character : text) {
        if (character == '"' || character == '\\') {
            result += '\\';
        }
        result += character == '\n' ? std::string("\\n") : std::string(1, character);
    }
    return result + '"';
}

void printNode(std::ostream& out, const ComponentState& state) {
    std::string label =
        state.type + "#" + std::to_string(state.number) + " (id " + std::to_string(state.id) + ")";
    for (const std::string& feature : state.features) {
        label += "\n" + feature;
    }
    out << "  " << quoted(state.path) << " [label=" << quoted(label) << "];\n";
    for (const ComponentState& child : state.children) {
        printNode(out, child);
        out << "  " << quoted(state.path) << " -> " << quoted(child.path) << ";\n";
    }
    for (const std::string& shared : state.shared) {
        out << "  " << quoted(state.path) << " -> " << quoted(shared) << " [style=dashed];\n";
    }
}

} // namespace

void printDot(std::ostream& out, const ComponentState& top) {
    out << "digraph tavrel {\n  rankdir=LR;\n  node [shape=box];\n";
    printNode(out, top);
    out << "}\n";
}

} // namespace tavrel::tool
