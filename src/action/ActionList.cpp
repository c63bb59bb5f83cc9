#include <qz/tavrel/Action.h>

namespace qz::tavrel {

ActionList::ActionList() = default;

ActionList::~ActionList() {
    for (Action* action : actions) {
        delete action;
    }
}

int ActionList::setAttribute(NameResolver*, const std::vector<std::string>&) {
    return 0;
}

void ActionList::execute(Component* target, int actionId, const void* in, unsigned int inSize, void* out,
                         unsigned int outSize) {
    for (Action* action : actions) {
        if (action != nullptr) {
            action->execute(target, actionId, in, inSize, out, outSize);
        }
    }
}

std::string ActionList::toString() {
    std::string text = "ActionList[";
    for (Action* action : actions) {
        if (action != nullptr) {
            text += action->toString() + ",";
        }
    }
    // Takes the place of the last comma, and of the opening bracket where there is none.
    text.back() = ']';
    return text;
}

void ActionList::addAction(Action* action) {
    actions.push_back(action);
}

void ActionList::addAction(std::vector<Action*>& added) {
    actions.insert(actions.end(), added.begin(), added.end());
}

} // namespace qz::tavrel
