#include <qz/tavrel/Resource.h>

namespace qz::tavrel {

Resource::Resource() : valid(true) {}

Resource::~Resource() = default;

unsigned int Resource::read(int key, void* buffer, unsigned int size) {
    return Resource::read(key, 0, 0, buffer, size);
}

unsigned int Resource::read(int key, long offset, void* buffer, unsigned int size) {
    return Resource::read(key, 0, offset, buffer, size);
}

unsigned int Resource::read(int key, int subkey, long offset, void* buffer, unsigned int size) {
    try {
        valid = true;
        return readMethod(key, subkey, offset, buffer, size);
    } catch (...) {
        valid = false;
        return 0;
    }
}

unsigned int Resource::write(int key, const void* buffer, unsigned int size) {
    return Resource::write(key, 0, 0, buffer, size);
}

unsigned int Resource::write(int key, long offset, const void* buffer, unsigned int size) {
    return Resource::write(key, 0, offset, buffer, size);
}

unsigned int Resource::write(int key, int subkey, long offset, const void* buffer, unsigned int size) {
    try {
        valid = true;
        return writeMethod(key, subkey, offset, buffer, size);
    } catch (...) {
        valid = false;
        return 0;
    }
}

void Resource::clear(int key, int subkey) {
    try {
        valid = true;
        clearMethod(key, subkey);
    } catch (...) {
        valid = false;
    }
}

} // namespace qz::tavrel
