// Loads library images from a program that links only vtcore-ui, calls
// nothing of it but the image loader and makes no QApplication: the case
// where an application uses the library for its images alone.
#include <vtcore/ui/common/images/images.h>

#include <cstdio>

int main() {
  // Side 0: a null image. Without a high-resolution screen the ratio is 1.
  const struct {
    const char* name;
    int side;
  } cases[] = {{"vtcore-logo", 48},
               {"vtcore-logo.png", 48},
               {"no-such-image", 0},
               {"", 0},
               {"../images/vtcore-logo", 0}};
  int failures = 0;
  for (const auto& test : cases) {
    const QImage image = kw_loadQuillonBundleImage(QString::fromUtf8(test.name));
    if (image.size() != QSize(test.side, test.side) || image.devicePixelRatio() != 1.0) {
      std::fprintf(stderr, "FAILED: \"%s\" gives %d x %d\n", test.name, image.width(),
                   image.height());
      ++failures;
    }
  }
  return failures == 0 ? 0 : 1;
}
