// vtcore-gallery: shows every widget of vtcore-ui in one window.
//   vtcore-gallery                     opens the window
//   vtcore-gallery --screenshot FILE   renders the window, writes FILE (PNG)
//                                      and exits; with QT_QPA_PLATFORM=offscreen
//                                      no display is needed
//   --dark                             (with either) a dark palette
#include "gallery.h"

#include <vtcore/ui.h>

#include <QApplication>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QScreen>
#include <QScrollArea>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>
#include <cstdio>

namespace vtcore::gallery {
namespace {

std::vector<SampleInfo>& registry() {
  static std::vector<SampleInfo> all;
  return all;
}

} // namespace

Sample::Sample(int order, const char* title, const char* explanation,
               std::function<QWidget*()> make) {
  registry().push_back(
      {order, QString::fromUtf8(title), QString::fromUtf8(explanation), std::move(make)});
}

std::vector<SampleInfo> samples() {
  std::vector<SampleInfo> sorted = registry();
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const SampleInfo& a, const SampleInfo& b) { return a.order < b.order; });
  return sorted;
}

} // namespace vtcore::gallery

namespace {

void printUsage(std::FILE* stream) {
  std::fputs("usage: vtcore-gallery [--dark] [--screenshot FILE]\n", stream);
}

QWidget* makeHeader() {
  auto* header = new QWidget;
  auto* layout = new QHBoxLayout(header);
  auto* logo = new QLabel;
  logo->setPixmap(QPixmap::fromImage(kw_loadQuillonBundleImage(QStringLiteral("vtcore-logo"))));
  layout->addWidget(logo);
  auto* text = new QLabel(
      QStringLiteral("<b style='font-size:16pt'>VTCore widget gallery</b><br>"
                     "Every widget of the vtcore-ui library, live, with what it is for."));
  layout->addWidget(text, 1);
  return header;
}

QWidget* makeCard(const vtcore::gallery::SampleInfo& sample) {
  auto* card = new QFrame;
  card->setFrameShape(QFrame::StyledPanel);
  card->setObjectName(QStringLiteral("sample"));
  auto* layout = new QHBoxLayout(card);
  layout->setSpacing(16);

  auto* text = new QLabel(QStringLiteral("<b>%1</b><br>%2").arg(sample.title, sample.explanation));
  text->setWordWrap(true);
  text->setTextFormat(Qt::RichText);
  text->setFixedWidth(300);
  text->setAlignment(Qt::AlignTop | Qt::AlignLeft);
  layout->addWidget(text);
  layout->addWidget(sample.make(), 1);
  return card;
}

QWidget* makeWindow() {
  auto* content = new QWidget;
  auto* column = new QVBoxLayout(content);
  column->setSpacing(10);
  column->addWidget(makeHeader());
  for (const auto& sample : vtcore::gallery::samples())
    column->addWidget(makeCard(sample));
  column->addStretch(1);

  auto* window = new QScrollArea;
  window->setWindowTitle(QStringLiteral("VTCore widget gallery"));
  window->setWidget(content);
  window->setWidgetResizable(true);
  window->setFrameShape(QFrame::NoFrame);
  return window;
}

// Shows `window`, lets it paint, and writes what it shows to `file`. On a
// real window system the picture is read back from the screen; offscreen it
// is the window's own rendering.
bool writeScreenshot(QWidget* window, const QString& file) {
  window->show();
  // A moment of the event loop: the window system shows and paints the
  // window, and the live samples (the timer's counter) get going.
  QEventLoop settle;
  QTimer::singleShot(400, &settle, &QEventLoop::quit);
  settle.exec();
  QPixmap picture;
  QScreen* screen = window->screen();
  if (QGuiApplication::platformName() != QLatin1String("offscreen") && screen)
    picture = screen->grabWindow(window->winId());
  if (picture.isNull())
    picture = window->grab();
  return !picture.isNull() && picture.save(file, "PNG");
}

// Fusion with a dark palette: how the widgets look in a dark desktop theme.
void useDarkPalette() {
  QApplication::setStyle(QStringLiteral("Fusion"));
  QPalette palette;
  const QColor window(0x2b, 0x2d, 0x30), base(0x1e, 0x1f, 0x22), text(0xdf, 0xe1, 0xe5);
  palette.setColor(QPalette::Window, window);
  palette.setColor(QPalette::WindowText, text);
  palette.setColor(QPalette::Base, base);
  palette.setColor(QPalette::AlternateBase, QColor(0x33, 0x36, 0x3a));
  palette.setColor(QPalette::Text, text);
  palette.setColor(QPalette::Button, QColor(0x3c, 0x3f, 0x44));
  palette.setColor(QPalette::ButtonText, text);
  palette.setColor(QPalette::Highlight, QColor(0x3d, 0x7e, 0xd6));
  palette.setColor(QPalette::HighlightedText, Qt::white);
  palette.setColor(QPalette::ToolTipBase, base);
  palette.setColor(QPalette::ToolTipText, text);
  palette.setColor(QPalette::Light, QColor(0x4a, 0x4d, 0x52));
  palette.setColor(QPalette::Midlight, QColor(0x40, 0x43, 0x48));
  palette.setColor(QPalette::Mid, QColor(0x55, 0x58, 0x5e));
  palette.setColor(QPalette::Dark, QColor(0x18, 0x19, 0x1b));
  palette.setColor(QPalette::Shadow, Qt::black);
  palette.setColor(QPalette::PlaceholderText, QColor(0x8a, 0x8d, 0x93));
  QApplication::setPalette(palette);
}

} // namespace

int main(int argc, char** argv) {
  QString screenshot;
  bool dark = false;
  for (int i = 1; i < argc; ++i) {
    const QString argument = QString::fromLocal8Bit(argv[i]);
    if (argument == QLatin1String("--screenshot") && i + 1 < argc && argv[i + 1][0] != '\0')
      screenshot = QString::fromLocal8Bit(argv[++i]);
    else if (argument == QLatin1String("--dark"))
      dark = true;
    else if (argument == QLatin1String("--help") || argument == QLatin1String("-h")) {
      printUsage(stdout);
      return 0;
    } else {
      printUsage(stderr);
      return 2;
    }
  }

  QApplication application(argc, argv);
  QApplication::setApplicationDisplayName(QStringLiteral("VTCore gallery"));
  vtcore::initializeUi();
  if (dark)
    useDarkPalette();

  QWidget* window = makeWindow();
  if (screenshot.isEmpty()) {
    window->resize(860, 720);
    window->show();
    const int status = QApplication::exec();
    delete window;
    return status;
  }

  // The screenshot shows every sample: the window is as tall as its content.
  auto* scroll = static_cast<QScrollArea*>(window);
  window->resize(860, std::max(400, scroll->widget()->sizeHint().height()));
  const bool written = writeScreenshot(window, screenshot);
  delete window;
  if (!written) {
    std::fprintf(stderr, "vtcore-gallery: cannot write the screenshot to %s\n",
                 screenshot.toLocal8Bit().constData());
    return 1;
  }
  return 0;
}
