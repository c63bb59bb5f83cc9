#include <qz/tavrel/tavrel.h>

#include <iostream>

using namespace qz::tavrel;

constexpr int fanType = 3;
constexpr int speedKey = 300;

class Names : public NameResolver { // the numbers of this machine's names, which all its processes share
public:
    Names() {
        setComponentType("Chassis", 1);
        setComponentType("FanTray", 2);
        setComponentType("Fan", fanType);
        setPropertyKey("Speed", speedKey);
    }
};

class FirstFactory : public Factory {
    void* createInstance(const std::string& name) override {
        return name == "NameResolver" ? static_cast<NameResolver*>(new Names) : Factory::createInstance(name);
    }
};

void run() {
    FirstFactory factory;
    Builder builder;
    builder.setFactory(&factory);
    builder.load("first.properties");
    builder.build(); // makes the tree, or joins the one that is there

    ComponentAccessor chassis(Component::getRoot());
    std::vector<ComponentAccessor> fans;
    chassis.findComponent(fanType, fans, false);
    for (ComponentAccessor& fan : fans) {
        unsigned char rpm[2] = {};
        fan.getProperty(speedKey, rpm, sizeof rpm);
        ++rpm[0]; // 256 more at each run
        fan.setProperty(speedKey, rpm, sizeof rpm);
        std::cout << fan.getPath() << " turns at " << rpm[0] * 256 + rpm[1] << " rpm\n";
    }
}

int main() {
    try {
        run();
    } catch (const std::exception& fault) {
        std::cerr << fault.what() << '\n';
        return 1;
    }
    Component::deleteAll();
}
