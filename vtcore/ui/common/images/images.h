// The library's own images, compiled into vtcore-ui as Qt resources.
#pragma once

#include <vtcore/export.h>

#include <QImage>
#include <QString>

/// Returns the library image called `name` ("octave-fill", or with its
/// extension, "octave-fill.png"), or a null QImage when the library has no
/// such image. Names are plain file names: a name with a path separator, or
/// an empty one, gives a null image. When the application's screens are
/// high-resolution and a "<name>@2x" image exists, that one is returned with
/// a device pixel ratio of 2. Needs no QApplication, and works in a program
/// that uses nothing else of the library: the resources are registered by
/// the loader itself.
VTCORE_UI_EXPORT QImage kw_loadQuillonBundleImage(const QString& name);

namespace vtcore {

/// Registers the library's images with Qt's resource system, so that
/// ":/vtcore/images/<file>" paths work in QIcon, QPixmap and style sheets
/// too. `initializeUi()` calls it; the loader above needs no call. Safe to
/// call any number of times, from any thread.
VTCORE_UI_EXPORT void registerImageResources();

} // namespace vtcore
