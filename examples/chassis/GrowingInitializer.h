#pragma once

#include <qz/tavrel/Initializer.h>

#include <vector>

namespace chassis {

/// Fits stored values to a new version of the specification. The library adds zeros behind a value that has
/// grown; the numbers of this machine stand most significant byte first, so theirs go in front.
class GrowingInitializer : public qz::tavrel::Initializer {
public:
    /// A number is what grows from 1, 2 or 4 bytes to at most 8.
    bool modifyProperty(int type, int key, unsigned int size, std::vector<unsigned char>& data) override;
};

} // namespace chassis
