#include <qz/tavrel/ComponentLockProvider.h>

namespace qz::tavrel {

ComponentLockProvider::ComponentLockProvider() = default;

ComponentLockProvider::~ComponentLockProvider() = default;

void ComponentLockProvider::update(void*, int event) {
    if (event == 0) {
        configure();
    }
}

void ComponentLockProvider::setConfiguration(const std::string& key, const std::string& value) {
    configuration.setProperty(key, value);
}

void ComponentLockProvider::setConfigurations(const util::config::CppProperties& properties) {
    configuration = properties;
}

void ComponentLockProvider::write(std::ostream&) {}

void ComponentLockProvider::setup() {}

void ComponentLockProvider::configure() {}

} // namespace qz::tavrel
