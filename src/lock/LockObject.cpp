#include <qz/tavrel/LockObject.h>

namespace qz::tavrel {

timespec LockObject::timeout{};

LockObject::~LockObject() = default;

void LockObject::setTimeoutValue(const timespec* value) {
    timeout = *value;
}

void LockObject::setupTimeoutValue(timespec* value) {
    if (timeout.tv_sec != 0 || timeout.tv_nsec != 0) {
        *value = timeout;
    }
}

} // namespace qz::tavrel
