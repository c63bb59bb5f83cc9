#include "TreeCheck.h"

#include "Refusal.h"
#include "Sections.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/TreeConfig.h>

#include <string>
#include <unordered_map>
#include <vector>

using qz::tavrel::Component;

namespace tavrel::tool {

namespace {

class Walk {
public:
    Walk(int limit, const std::string& storePath) : max(limit), store(storePath) {}

    void visit(int id) {
        State& state = states[id];
        if (state == State::Above) {
            damaged(id, "is beneath itself");
        }
        if (state == State::Done) {
            return;
        }
        state = State::Above;
        checkNode(id);
        for (const int child : targets(id, 0)) {
            visit(child);
        }
        targets(id, 1);
        state = State::Done;
    }

private:
    enum class State : char { New, Above, Done };

    [[noreturn]] void damaged(int id, const std::string& text) const {
        throw Refusal("the tree in " + store + " is damaged: component " + std::to_string(id) + ' ' + text);
    }

    void checkNode(int id) const {
        qz::tavrel::TreeConfig* tree = Component::getTreeConfig();
        const int type = tree->getNodeType(id);
        const int number = tree->getNodeNumber(id);
        if (id != 0 && tree->getNodeRevision(id) < 0) {
            damaged(id, "is linked and has no record");
        }
        if (type == 0) {
            return; // a process that removed it has died before it removed the link
        }
        const std::string name = Component::getNameResolver()->getComponentName(type);
        if (type > 0 && !name.empty() && qz::tavrel::ComponentClass::get(type) == nullptr) {
            throw Refusal("component " + std::to_string(id) + " in " + store + " is of the type '" + name +
                          "', which the specification does not have");
        }
        if (type < 0 || name.empty()) {
            damaged(id, "has the type " + std::to_string(type));
        }
        if (number < 0) {
            damaged(id, "has the number " + std::to_string(number));
        }
    }

    std::vector<int> targets(int id, int relation) const {
        std::vector<int> ids;
        Component::getTreeConfig()->get(id, ids, relation);
        for (const int target : ids) {
            if (target < 0 || target >= max) {
                throw Refusal("component " + std::to_string(id) + " links to component " +
                              std::to_string(target) + ": the tree in " + store +
                              " is damaged, or tavrel.compo.max = " + std::to_string(max) + " was lowered");
            }
        }
        return ids;
    }

    int max;
    const std::string& store;
    std::unordered_map<int, State> states;
};

} // namespace

void checkTree(int max, const std::string& store) {
    const TreeSection section;
    Walk(max, store).visit(0);
}

} // namespace tavrel::tool
