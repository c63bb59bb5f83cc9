#include <qz/tavrel/tavrel.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

using namespace qz::tavrel;

namespace {

using Slots = std::vector<int>;

/// Slots of the operation tables that the library's clients compile in; a destructor has two.
constexpr int destructor = 0;
constexpr int behindDestructor = destructor + 2;

/// The slot of a virtual operation, -1 if the operation is not virtual. The mark of a virtual operation is in
/// the low bit of either word, as the processor has it.
template <typename Operation>
int slotOf(Operation operation) {
    struct {
        std::ptrdiff_t place;
        std::ptrdiff_t adjustment;
    } words{};
    static_assert(sizeof words == sizeof operation);
    std::memcpy(&words, &operation, sizeof words);
    constexpr auto size = static_cast<std::ptrdiff_t>(sizeof(void*));
    if ((words.adjustment & 1) != 0) {
        return static_cast<int>(words.place / size);
    }
    return (words.place & 1) != 0 ? static_cast<int>((words.place - 1) / size) : -1;
}

/// Names one of several operations of a name by what it takes.
template <typename... Taken>
struct Taking {
    template <typename Result, typename Class>
    static int slot(Result (Class::*operation)(Taken...)) {
        return slotOf(operation);
    }
    template <typename Result, typename Class>
    static int slot(Result (Class::*operation)(Taken...) const) {
        return slotOf(operation);
    }
};

/// `count` slots in a row.
Slots row(int first, int count) {
    Slots slots;
    for (int i = 0; i < count; ++i) {
        slots.push_back(first + i);
    }
    return slots;
}

struct Plain {
    void operation() {}
};

} // namespace

TEST(SlotOrder, IsToldOfVirtualOperationsAlone) {
    EXPECT_EQ(-1, slotOf(&Plain::operation));
    EXPECT_EQ(-1, slotOf(&TreePath::getPathCount));
}

TEST(SlotOrder, OfExceptionsHolds) {
    EXPECT_EQ(behindDestructor, slotOf(&QZException::what));
    EXPECT_EQ(behindDestructor, slotOf(&TavrelException::what));
}

TEST(SlotOrder, OfTracesHolds) {
    using Word = unsigned long;
    using Place = const void*;
    using Bytes = const unsigned char*;
    const auto group = [](auto taking) {
        using Group = decltype(taking);
        return Slots{Group::slot(&QZTrace::error), Group::slot(&QZTrace::info), Group::slot(&QZTrace::debug),
                     Group::slot(&QZTrace::debug2)};
    };
    using Text = const std::string&;

    EXPECT_EQ(row(2, 4), group(Taking<Word, Word, Word, Word, Word>()));
    EXPECT_EQ(row(6, 4), group(Taking<Word, Word, Word, Word, Word, Word, Word, Word, Word>()));
    EXPECT_EQ(row(10, 4), group(Taking<Word, int, int, int, int>()));
    EXPECT_EQ(row(14, 4), group(Taking<Word, int, int, int, int, int, int, int, int>()));
    EXPECT_EQ(row(18, 4), group(Taking<Word, Bytes, int>()));
    EXPECT_EQ(row(22, 4), group(Taking<Word, const char*>()));
    EXPECT_EQ(row(26, 4), group(Taking<Word, Place, Word, Word, Word>()));
    EXPECT_EQ(row(30, 4), group(Taking<Word, Place, Place, Word, Word>()));
    EXPECT_EQ(row(34, 4), group(Taking<Word, Place, Place, Place, Word>()));
    EXPECT_EQ(row(38, 4), group(Taking<Word, Place, Place, Place, Place>()));
    EXPECT_EQ(row(42, 6), (Slots{slotOf(&Logger::fatal), Taking<Text>::slot(&Logger::error),
                                 slotOf(&Logger::warn), Taking<Text>::slot(&Logger::info),
                                 Taking<Text>::slot(&Logger::debug), slotOf(&Logger::trace)}));
}

TEST(SlotOrder, OfTheTreeHolds) {
    EXPECT_EQ(row(2, 2), (Slots{slotOf(&SystemObject::read), slotOf(&SystemObject::write)}));
    EXPECT_EQ(row(2, 3),
              (Slots{slotOf(&Component::read), slotOf(&Component::write), slotOf(&Component::toString)}));
    EXPECT_EQ(row(2, 4), (Slots{Taking<Component*>::slot(&TreePath::add), slotOf(&TreePath::clear),
                                Taking<std::istream&>::slot(&TreePath::read),
                                Taking<std::ostream&>::slot(&TreePath::write)}));
    using Local = ComponentAccessor::LocalTreePath;
    EXPECT_EQ(row(2, 4),
              (Slots{Taking<Component*>::slot(&Local::add), slotOf(&Local::clear),
                     Taking<std::istream&>::slot(&Local::read), Taking<std::ostream&>::slot(&Local::write)}));
}

TEST(SlotOrder, OfVisitorsHolds) {
    EXPECT_EQ(behindDestructor, slotOf(&ComponentVisitor::visit));
    EXPECT_EQ(row(2, 3), (Slots{slotOf(&AbstractVisitor::visit), slotOf(&AbstractVisitor::doTopDown),
                                slotOf(&AbstractVisitor::doBottomUp)}));
    EXPECT_EQ(row(2, 4), (Slots{slotOf(&Initializer::visit), slotOf(&Initializer::doTopDown),
                                slotOf(&Initializer::doBottomUp), slotOf(&Initializer::modifyProperty)}));
}

TEST(SlotOrder, OfActionsHolds) {
    EXPECT_EQ(row(2, 3),
              (Slots{slotOf(&Action::setAttribute), slotOf(&Action::execute), slotOf(&Action::toString)}));
    EXPECT_EQ(row(2, 5), (Slots{slotOf(&ActionList::setAttribute), slotOf(&ActionList::execute),
                                slotOf(&ActionList::toString), Taking<Action*>::slot(&ActionList::addAction),
                                Taking<std::vector<Action*>&>::slot(&ActionList::addAction)}));
    EXPECT_EQ(row(2, 3), (Slots{slotOf(&ActionWrapper::setAttribute), slotOf(&ActionWrapper::execute),
                                slotOf(&ActionWrapper::toString)}));
    EXPECT_EQ(row(2, 3), (Slots{slotOf(&AddComponent::setAttribute), slotOf(&AddComponent::execute),
                                slotOf(&AddComponent::toString)}));
    EXPECT_EQ(row(2, 3), (Slots{slotOf(&ShareComponent::setAttribute), slotOf(&ShareComponent::execute),
                                slotOf(&ShareComponent::toString)}));
    EXPECT_EQ(row(2, 3),
              (Slots{slotOf(&Sleep::setAttribute), slotOf(&Sleep::execute), slotOf(&Sleep::toString)}));
    EXPECT_EQ(row(2, 3), (Slots{slotOf(&PrintMessage::setAttribute), slotOf(&PrintMessage::execute),
                                slotOf(&PrintMessage::toString)}));
    EXPECT_EQ(-1, slotOf(&Sleep::getTime));
}

TEST(SlotOrder, OfControlsHolds) {
    const auto slots = [](auto* none) {
        using Control = std::remove_pointer_t<decltype(none)>;
        return Slots{slotOf(&Control::setAttribute), slotOf(&Control::execute), slotOf(&Control::toString),
                     slotOf(&Control::get),          slotOf(&Control::sort),    slotOf(&Control::control),
                     slotOf(&Control::evaluate)};
    };

    EXPECT_EQ(row(2, 7), slots(static_cast<ControlTarget*>(nullptr)));
    EXPECT_EQ(row(2, 7), slots(static_cast<ControlComponents*>(nullptr)));
    EXPECT_EQ(row(2, 7), slots(static_cast<ControlSubset*>(nullptr)));
    EXPECT_EQ(row(2, 7), slots(static_cast<ControlOnComponents*>(nullptr)));
    EXPECT_EQ(9, slotOf(&ControlComponents::isTarget));
    EXPECT_EQ(9, slotOf(&ControlSubset::isTarget));
}

TEST(SlotOrder, OfConfigurationsHolds) {
    EXPECT_EQ(behindDestructor, slotOf(&EventListener::update));
    EXPECT_EQ(row(2, 4), (Slots{slotOf(&Configuration::load), slotOf(&Configuration::save),
                                slotOf(&Configuration::read), slotOf(&Configuration::write)}));
    using Nodes = TreeConfig::NodeConfig;
    EXPECT_EQ(row(2, 4), (Slots{slotOf(&Nodes::load), slotOf(&Nodes::save), slotOf(&Nodes::read),
                                slotOf(&Nodes::write)}));
}

TEST(SlotOrder, OfTheStoredTreeHolds) {
    EXPECT_EQ(row(2, 13),
              (Slots{slotOf(&TreeConfig::load), slotOf(&TreeConfig::save), slotOf(&TreeConfig::read),
                     slotOf(&TreeConfig::write), slotOf(&TreeConfig::get), slotOf(&TreeConfig::getSrcs),
                     slotOf(&TreeConfig::getSrc), slotOf(&TreeConfig::getAll),
                     Taking<int, int, int>::slot(&TreeConfig::add),
                     Taking<int, std::vector<int>&, int>::slot(&TreeConfig::add), slotOf(&TreeConfig::remove),
                     slotOf(&TreeConfig::removeAll), slotOf(&TreeConfig::clear)}));
    EXPECT_EQ(row(2, 13),
              (Slots{slotOf(&Association::load), slotOf(&Association::save), slotOf(&Association::read),
                     slotOf(&Association::write), slotOf(&Association::get), slotOf(&Association::getSrcs),
                     slotOf(&Association::getSrc), slotOf(&Association::getAll),
                     Taking<int, int>::slot(&Association::add),
                     Taking<int, std::vector<int>&>::slot(&Association::add), slotOf(&Association::remove),
                     slotOf(&Association::removeAll), slotOf(&Association::clear)}));
}

TEST(SlotOrder, OfStoresHolds) {
    using Size = unsigned int;
    EXPECT_EQ(row(0, 3), (Slots{slotOf(&Resource::readMethod), slotOf(&Resource::writeMethod),
                                slotOf(&Resource::clearMethod)}));
    // The destructor has slots 3 and 4.
    EXPECT_EQ(
        row(5, 11),
        (Slots{slotOf(&Resource::toString), slotOf(&Resource::lock), slotOf(&Resource::unlock),
               slotOf(&Resource::initialize), Taking<int, void*, Size>::slot(&Resource::read),
               Taking<int, long, void*, Size>::slot(&Resource::read),
               Taking<int, int, long, void*, Size>::slot(&Resource::read),
               Taking<int, const void*, Size>::slot(&Resource::write),
               Taking<int, long, const void*, Size>::slot(&Resource::write),
               Taking<int, int, long, const void*, Size>::slot(&Resource::write), slotOf(&Resource::clear)}));
    EXPECT_EQ(row(0, 3), (Slots{slotOf(&Database::readMethod), slotOf(&Database::writeMethod),
                                slotOf(&Database::clearMethod)}));
    EXPECT_EQ(row(16, 3), (Slots{slotOf(&Database::getValue), slotOf(&Database::setValue),
                                 slotOf(&Database::clearValue)}));
    EXPECT_EQ(behindDestructor, (Taking<void*, int>::slot(&ResourceManager::update)));
}

TEST(SlotOrder, OfPropertiesHolds) {
    EXPECT_EQ(row(2, 4), (Slots{slotOf(&PropertyAccessor::read), slotOf(&PropertyAccessor::write),
                                slotOf(&PropertyAccessor::clear), slotOf(&PropertyAccessor::readRaw)}));
    EXPECT_EQ(row(2, 7),
              (Slots{slotOf(&PropertyLocator::toString), slotOf(&PropertyLocator::readProperty),
                     slotOf(&PropertyLocator::writeProperty), slotOf(&PropertyLocator::clearProperties),
                     slotOf(&PropertyLocator::readData), slotOf(&PropertyLocator::getPropertyKeys),
                     slotOf(&PropertyLocator::getPropertySize)}));
}

TEST(SlotOrder, OfLocksHolds) {
    const auto locking = [](auto read, auto readUnlock, auto write, auto writeUnlock) {
        return Slots{slotOf(read), slotOf(readUnlock), slotOf(write), slotOf(writeUnlock)};
    };

    EXPECT_EQ(row(2, 4), locking(&LockObject::readLock, &LockObject::readUnlock, &LockObject::writeLock,
                                 &LockObject::writeUnlock));
    EXPECT_EQ(row(2, 4), locking(&PthreadRWLock::readLock, &PthreadRWLock::readUnlock,
                                 &PthreadRWLock::writeLock, &PthreadRWLock::writeUnlock));
    EXPECT_EQ(row(6, 3), (Slots{slotOf(&PthreadRWLock::rwlock), slotOf(&PthreadRWLock::timedReadLock),
                                slotOf(&PthreadRWLock::timedWriteLock)}));
}

TEST(SlotOrder, OfLockProvidersHolds) {
    using Provider = ComponentLockProvider;
    EXPECT_EQ(row(2, 11),
              (Slots{slotOf(&Provider::update), slotOf(&Provider::setConfiguration),
                     slotOf(&Provider::setConfigurations), slotOf(&Provider::initialize),
                     slotOf(&Provider::readLock), slotOf(&Provider::readUnlock), slotOf(&Provider::writeLock),
                     slotOf(&Provider::writeUnlock), slotOf(&Provider::write), slotOf(&Provider::setup),
                     slotOf(&Provider::configure)}));
    using Semaphores = SemLockProvider;
    EXPECT_EQ(row(2, 11), (Slots{slotOf(&Semaphores::update), slotOf(&Semaphores::setConfiguration),
                                 slotOf(&Semaphores::setConfigurations), slotOf(&Semaphores::initialize),
                                 slotOf(&Semaphores::readLock), slotOf(&Semaphores::readUnlock),
                                 slotOf(&Semaphores::writeLock), slotOf(&Semaphores::writeUnlock),
                                 slotOf(&Semaphores::write), slotOf(&Semaphores::setup),
                                 slotOf(&Semaphores::configure)}));
}

TEST(SlotOrder, OfBuildingHolds) {
    EXPECT_EQ(behindDestructor, slotOf(&Factory::createInstance));
    EXPECT_EQ(row(2, 4),
              (Slots{slotOf(&Specification::load), slotOf(&Specification::empty),
                     slotOf(&Specification::getSectionNames), slotOf(&Specification::getEntries)}));
    EXPECT_EQ(row(2, 8),
              (Slots{slotOf(&NameResolver::getComponentType), slotOf(&NameResolver::getComponentName),
                     slotOf(&NameResolver::getActionId), slotOf(&NameResolver::getActionName),
                     slotOf(&NameResolver::getPropertyKey), slotOf(&NameResolver::getPropertyName),
                     slotOf(&NameResolver::getValue), slotOf(&NameResolver::getName)}));
}
