#include <qz/tavrel/TreeConfig.h>

#include <arpa/inet.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace qz::tavrel {

namespace {

using Node = TreeConfig::Node;

// A node is written and read as it lies in memory: id, revision, type, number, parent.
static_assert(sizeof(Node) == 20 && std::is_trivially_copyable_v<Node> && std::is_standard_layout_v<Node>);
static_assert(offsetof(Node, id) == 0 && offsetof(Node, revision) == 4 && offsetof(Node, type) == 8);
static_assert(offsetof(Node, number) == 12 && offsetof(Node, parent) == 16);

} // namespace

void TreeConfig::Node::init() {
    *this = Node();
}

bool TreeConfig::Node::isValid() {
    return id >= 0 && revision >= 0 && type >= 0;
}

void TreeConfig::Node::hton() {
    for (int* field : {&id, &revision, &type, &number, &parent}) {
        *field = static_cast<int>(htonl(static_cast<std::uint32_t>(*field)));
    }
}

void TreeConfig::Node::ntoh() {
    for (int* field : {&id, &revision, &type, &number, &parent}) {
        *field = static_cast<int>(ntohl(static_cast<std::uint32_t>(*field)));
    }
}

std::string TreeConfig::Node::toString() {
    return "ID:" + std::to_string(id) + " rev:" + std::to_string(revision) + " type:" + std::to_string(type) +
           " num:" + std::to_string(number) + " parent:" + std::to_string(parent);
}

} // namespace qz::tavrel
