// Private to vtcore-ui (not installed): registration of the image resources.
#pragma once

namespace vtcore::detail {

/// Registers the library's compiled-in images with Qt's resource system;
/// safe to call any number of times, from any thread.
void registerImageResources();

} // namespace vtcore::detail
