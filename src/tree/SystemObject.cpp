#include <qz/tavrel/Component.h>

namespace qz::tavrel {

SystemObject::~SystemObject() = default;

std::istream& SystemObject::read(std::istream& stream) {
    return stream;
}

std::ostream& SystemObject::write(std::ostream& stream) {
    return stream;
}

std::istream& operator>>(std::istream& stream, SystemObject& object) {
    return object.read(stream);
}

std::ostream& operator<<(std::ostream& stream, SystemObject& object) {
    return object.write(stream);
}

} // namespace qz::tavrel
