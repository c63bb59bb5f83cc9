/// @file
/// The unit of behaviour of a component class, and the members that serve others.
#pragma once

#include <string>
#include <vector>

namespace qz::tavrel {

class Component;
class NameResolver;

/// A piece of behaviour, bound to a component class under an action id.
///
/// One object serves all components of its class, so it keeps what its attributes gave it and nothing of any
/// one call.
/// Threads: `setAttribute` belongs to building, one at a time; any number are in `execute` at the same time.
class Action {
public:
    Action() = default;
    virtual ~Action();
    Action(const Action&) = delete;
    Action& operator=(const Action&) = delete;

    /// Takes the attributes of the action's specification row; a text that is no number counts as 0.
    ///
    /// @param resolver    turns names into numbers
    /// @param attributes  the cells behind the class name, in order
    /// @return how many of them the action has taken; by default none, 0
    virtual int setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes);

    /// Does the work. A failure leaves as an exception; what a caller wants to know comes in `out`.
    ///
    /// @param target    the component that it works on
    /// @param actionId  the id by which it was called
    /// @param in        input, `inSize` bytes; may be null; the caller's, its meaning is the action's own
    /// @param out       output, `outSize` bytes; may be null; the caller's as well
    /// Locks: none is held; an action that wants one takes it itself.
    virtual void execute(Component* target, int actionId, const void* in, unsigned int inSize, void* out,
                         unsigned int outSize) = 0;

    /// Name of the class, for reports; empty by default.
    virtual std::string toString();
};

/// Several actions that run one after another.
class ActionList : public Action {
public:
    ActionList();
    ~ActionList() override;

    /// Takes none. @return 0
    int setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) override;

    /// Runs each action with the same arguments, in order. An exception from one ends the run and passes on.
    void execute(Component* target, int actionId, const void* in, unsigned int inSize, void* out,
                 unsigned int outSize) override;

    /// "ActionList[", the texts of the actions with commas between, "]"; an empty list gives "ActionList]".
    std::string toString() override;

    /// Appends an action, which the list owns from now on; a null one does nothing and has no text.
    virtual void addAction(Action* action);

    /// Appends all actions, in order; the list owns them from now on.
    virtual void addAction(std::vector<Action*>& added);

private:
    std::vector<Action*> actions;
};

/// Base of actions that add something around another action, which belongs to somebody else.
class ActionWrapper : public Action {
public:
    /// Wraps `NullAction::getInstance()`.
    ActionWrapper();

    /// Wraps an action, which must not be null and outlives this object.
    explicit ActionWrapper(Action* wrapped);
    ~ActionWrapper() override;

    /// Takes none. @return 0
    int setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) override;

    void execute(Component* target, int actionId, const void* in, unsigned int inSize, void* out,
                 unsigned int outSize) override = 0;

    /// The text of the wrapped action.
    std::string toString() override;

    /// Wraps another action instead, which must not be null and outlives this object. Deletes nothing.
    void wrap(Action* wrapped);

protected:
    Action* action;
};

/// Stands wherever an action must exist and none was given. Leaves a trace record and does nothing.
class NullAction : public Action {
public:
    /// The one instance of the process, made at the first call; it lives to the end of the process.
    static NullAction* getInstance();
    ~NullAction() override;

    /// Takes none. @return 0
    int setAttribute(NameResolver* resolver, const std::vector<std::string>& attributes) override;

    /// Traces the component's id and the action id.
    void execute(Component* target, int actionId, const void* in, unsigned int inSize, void* out,
                 unsigned int outSize) override;

    /// "NullAction".
    std::string toString() override;

private:
    NullAction();
};

} // namespace qz::tavrel
