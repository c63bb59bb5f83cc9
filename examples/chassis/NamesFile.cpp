#include "NamesFile.h"

#include <stdexcept>

namespace chassis {

NamesFile::NamesFile(const std::string& path) {
    if (load(path) <= 0) {
        throw std::runtime_error("the names file '" + path + "' cannot be read or ends early");
    }
}

} // namespace chassis
