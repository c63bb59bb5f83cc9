// The smallest program outside of the repository: starts on files of its own, writes a property and reads it
// back.

#include <qz/tavrel/tavrel.h>

#include <fstream>
#include <iostream>

using namespace qz::tavrel;

namespace {

constexpr int speedKey = 300;

class Names : public NameResolver {
public:
    Names() { setPropertyKey("Speed", speedKey); }
};

class ConsumerFactory : public Factory {
public:
    void* createInstance(const std::string& name) override {
        return name == "NameResolver" ? static_cast<NameResolver*>(new Names) : Factory::createInstance(name);
    }
};

} // namespace

int main() {
    std::ofstream("/tmp/machine.csv") << "Chassis\ncomponent,Fan,2\n\nFan\nproperty,tavrel.db,Speed,4\n";
    std::ofstream("/tmp/machine.properties")
        << "tavrel.compo.ver = 1\ntavrel.spec.compo = machine.csv\n"
        << "tavrel.res.type = BMCRelationalDB\ntavrel.compo.shared = enable\n";
    ConsumerFactory factory;
    {
        Builder builder;
        builder.setFactory(&factory);
        builder.load("/tmp/machine.properties");
        builder.build();
    }
    Component* const fan = TreePath("/Chassis#0/Fan#1").getComponent();
    fan->setProperty(speedKey, 4200);
    ComponentAccessor accessor(fan);
    const int speed = accessor.getComponent()->getProperty(speedKey);
    std::cout << accessor.getPath() << " turns at " << speed << '\n';
    Component::deleteAll();
    return speed == 4200 ? 0 : 1;
}
