#include "TreeCheck.h"

#include "Refusal.h"
#include "Sections.h"

#include <qz/tavrel/Component.h>
#include <qz/tavrel/TreeConfig.h>

#include <string>
#include <unordered_map>
#include <vector>

using qz::tavrel::Component;

namespace tavrel::tool {

namespace {

class Walk {
public:
    explicit Walk(int limit) : max(limit) {}

    void visit(int id) {
        State& state = states[id];
        if (state == State::Above) {
            throw Refusal("the stored tree is damaged: component " + std::to_string(id) +
                          " is beneath itself");
        }
        if (state == State::Done) {
            return;
        }
        state = State::Above;
        for (const int child : targets(id, 0)) {
            visit(child);
        }
        targets(id, 1);
        state = State::Done;
    }

private:
    enum class State : char { New, Above, Done };

    std::vector<int> targets(int id, int relation) const {
        std::vector<int> ids;
        Component::getTreeConfig()->get(id, ids, relation);
        for (const int target : ids) {
            if (target < 0 || target >= max) {
                throw Refusal("component " + std::to_string(id) + " links to component " +
                              std::to_string(target) +
                              ": the stored tree is damaged, or tavrel.compo.max = " + std::to_string(max) +
                              " was lowered");
            }
        }
        return ids;
    }

    int max;
    std::unordered_map<int, State> states;
};

} // namespace

void checkTree(int max) {
    const TreeSection section;
    Walk(max).visit(0);
}

} // namespace tavrel::tool
