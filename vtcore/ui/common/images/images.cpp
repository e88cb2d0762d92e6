#include <vtcore/ui/common/images/images.h>

#include <QFile>
#include <QGuiApplication>

#include <mutex>

// The resources register themselves when the library is loaded; calling the
// registration once more from the loader makes that independent of how the
// program was linked and of the order of static initialisation. Registering
// the same resource twice is harmless.
static void registerLibraryImages() {
  static std::once_flag once;
  std::call_once(once, [] { Q_INIT_RESOURCE(vtcore_ui_images); });
}

namespace vtcore {
void registerImageResources() {
  registerLibraryImages();
}
} // namespace vtcore

QImage kw_loadQuillonBundleImage(const QString& name) {
  if (name.isEmpty() || name.contains(QLatin1Char('/')) || name.contains(QLatin1Char('\\')))
    return {};
  registerLibraryImages();

  const QString base = QStringLiteral(":/vtcore/images/") + name;
  const bool hasExtension = name.endsWith(QLatin1String(".png"), Qt::CaseInsensitive);
  const QString stem = hasExtension ? base.chopped(4) : base;

  const auto* gui = qobject_cast<QGuiApplication*>(QCoreApplication::instance());
  if (gui && gui->devicePixelRatio() > 1.0) {
    QImage sharp(stem + QStringLiteral("@2x.png"));
    if (!sharp.isNull()) {
      sharp.setDevicePixelRatio(2.0);
      return sharp;
    }
  }
  return QImage(stem + QStringLiteral(".png"));
}
