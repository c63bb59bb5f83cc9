#include "base/SystemText.h"

#include <cstring>

namespace qz::internal {

SystemText::SystemText(int errnum) : buffer{}, found(strerror_r(errnum, buffer, sizeof buffer)) {}

} // namespace qz::internal
