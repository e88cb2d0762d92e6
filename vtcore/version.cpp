#include <vtcore/version.h>

namespace vtcore {

const char* libraryVersion() noexcept {
  return VTCORE_VERSION_STRING;
}

} // namespace vtcore
