// Loads library images from a program that links only vtcore-ui and calls
// nothing of it but the image loader, and no QApplication: the case where
// an application uses the library for its images alone. Exit status 0 when
// every check holds.
#include <vtcore/ui/common/images.h>

#include <cstdio>

namespace {
int failures = 0;

void check(bool condition, const char* what) {
  if (!condition) {
    std::fprintf(stderr, "FAILED: %s\n", what);
    ++failures;
  }
}
} // namespace

int main() {
  const QImage logo = kw_loadQuillonBundleImage(QStringLiteral("vtcore-logo"));
  check(!logo.isNull(), "the logo loads by name");
  check(logo.size() == QSize(48, 48), "the logo is 48 x 48");
  check(logo.devicePixelRatio() == 1.0, "without a high-resolution screen, ratio 1");
  check(kw_loadQuillonBundleImage(QStringLiteral("vtcore-logo.png")).size() == QSize(48, 48),
        "the name may carry its extension");
  check(kw_loadQuillonBundleImage(QStringLiteral("no-such-image")).isNull(),
        "an unknown name gives a null image");
  check(kw_loadQuillonBundleImage(QString()).isNull(), "an empty name gives a null image");
  check(kw_loadQuillonBundleImage(QStringLiteral("../images/vtcore-logo")).isNull(),
        "a path is not a name");
  if (failures == 0)
    std::puts("image loader: ok");
  return failures == 0 ? 0 : 1;
}
