#include "GrowingInitializer.h"

namespace chassis {

bool GrowingInitializer::modifyProperty(int type, int key, unsigned int size,
                                        std::vector<unsigned char>& data) {
    const std::size_t stored = data.size();
    const bool number = stored == 1 || stored == 2 || stored == 4;
    if (!number || stored >= size || size > 8) {
        return Initializer::modifyProperty(type, key, size, data);
    }
    data.insert(data.begin(), size - stored, 0);
    return true;
}

} // namespace chassis
