#include <vtcore/ui/controls/octave_picker/octave_picker_view.h>

#include <vtcore/ui/common/images/images.h>

#include <QMouseEvent>
#include <QPainter>
#include <QPointer>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

// The keyboards show every MIDI note from C-2: 75 white keys reach G8 (127),
// the short picture stops one white key earlier.
constexpr int kLargeWhiteKeys = 75;
constexpr int kShortWhiteKeys = 74;

// Mouse positions are far below this; anything above is pushed back to the
// keyboard anyway, and the cast to an unsigned key stays defined.
constexpr double kLargestKey = 9007199254740992.0; // 2^53

// Point-in-rectangle as the host tests it: the left and top edges belong to
// the rectangle, the right and bottom edges do not.
bool containsPoint(const QRectF& rect, const QPointF& point) {
  return point.x() >= rect.left() && point.x() < rect.right() && point.y() >= rect.top() &&
         point.y() < rect.bottom();
}

QSizeF pointSize(const QImage& image) {
  return image.deviceIndependentSize();
}

} // namespace

DfOctavePickerView* DfOctavePickerView::octavePickerViewLarge(bool large) {
  return new DfOctavePickerView(QRect(), large);
}

DfOctavePickerView::DfOctavePickerView(const QRect& frame, bool isLarge, QWidget* parent)
    : QWidget(parent) {
  // A plain view: the keyboard focus stays where it was when the user clicks.
  setFocusPolicy(Qt::NoFocus);
  initWithFrame(frame, isLarge);
}

DfOctavePickerView::DfOctavePickerView(QWidget* parent)
    : DfOctavePickerView(QRect(), true, parent) {}

DfOctavePickerView::~DfOctavePickerView() = default;

DfOctavePickerView* DfOctavePickerView::initWithFrame(const QRect& frame, bool isLarge) {
  m_bgImage = kw_loadQuillonBundleImage(isLarge ? QStringLiteral("octave-control-bg")
                                                : QStringLiteral("octave-control-bg-short"));
  m_glyphKeysImage = kw_loadQuillonBundleImage(isLarge ? QStringLiteral("octave-glyphKeys")
                                                       : QStringLiteral("octave-glyphKeys-short"));
  m_rangeLeftEdgeImage = kw_loadQuillonBundleImage(QStringLiteral("octave-L_edge"));
  m_rangeFillImage = kw_loadQuillonBundleImage(QStringLiteral("octave-fill"));
  m_rangeRightEdgeImage = kw_loadQuillonBundleImage(QStringLiteral("octave-R_edge"));

  m_keyRange = {10, 10};
  m_totalKeysWidth = static_cast<float>(pointSize(m_glyphKeysImage).width());
  m_targetAction = {};
  m_mouseDownOffset = -1.0f;
  m_clickRaster = 7;
  m_dragRaster = 1;
  m_totalNumWhiteKeys = isLarge ? kLargeWhiteKeys : kShortWhiteKeys;

  move(frame.topLeft());
  setFixedSize(pointSize(m_bgImage).toSize());
  update();
  return this;
}

QSize DfOctavePickerView::sizeHint() const {
  return pointSize(m_bgImage).toSize();
}

float DfOctavePickerView::keyWidth() const {
  if (m_totalNumWhiteKeys <= 0 || !(m_totalKeysWidth > 0.0f))
    return 0.0f;
  return m_totalKeysWidth / static_cast<float>(m_totalNumWhiteKeys);
}

QRectF DfOctavePickerView::rangeRect() const {
  const double w = keyWidth();
  const double location = static_cast<double>(m_keyRange.location);
  const double length = static_cast<double>(m_keyRange.length);
  const double x = std::floor(location * w) + kKeysLeft;
  const double right = std::floor(w * (location + length) - 1.0) + kKeysLeft;
  return QRectF(x, 0.0, right - x, height());
}

void DfOctavePickerView::markDirty(const QRectF& markerRect) {
  // Only the part inside the view: a stored range may put the marker beyond
  // any integer coordinate.
  const QRectF dirty =
      markerRect.normalized().adjusted(-1.0, -1.0, 1.0, 1.0).intersected(QRectF(rect()));
  if (!dirty.isEmpty())
    update(dirty.toAlignedRect());
}

void DfOctavePickerView::setKeyRange(vtcore::KeyRange range) {
  markDirty(rangeRect());
  m_keyRange = range;
  markDirty(rangeRect());
}

namespace {

int clampedToInt(std::size_t value) {
  return static_cast<int>(std::min<std::size_t>(value, std::numeric_limits<int>::max()));
}

std::size_t clampedToSize(int value) {
  return static_cast<std::size_t>(std::max(value, 0));
}

} // namespace

int DfOctavePickerView::keyRangeLocation() const {
  return clampedToInt(m_keyRange.location);
}

void DfOctavePickerView::setKeyRangeLocation(int location) {
  setKeyRange({clampedToSize(location), m_keyRange.length});
}

int DfOctavePickerView::keyRangeLength() const {
  return clampedToInt(m_keyRange.length);
}

void DfOctavePickerView::setKeyRangeLength(int length) {
  setKeyRange({m_keyRange.location, clampedToSize(length)});
}

void DfOctavePickerView::setKeyRangeForMouseEvent(const QMouseEvent* event, int raster) {
  if (!event)
    return;
  const double w = keyWidth();
  double key = 0.0;
  if (w > 0.0)
    key = std::floor((event->position().x() - m_mouseDownOffset - kKeysLeft) / w);
  // Negated so that NaN also lands on 0.
  if (!(key > 0.0))
    key = 0.0;
  std::size_t location = static_cast<std::size_t>(std::min(key, kLargestKey));
  if (raster > 1) {
    const auto step = static_cast<std::size_t>(raster);
    location = step * (location / step);
  }
  // Written without location + length, which a stored length could overflow.
  const auto total = static_cast<std::size_t>(std::max(m_totalNumWhiteKeys, 0));
  const std::size_t length = m_keyRange.length;
  if (length > total)
    location = 0;
  else if (location > total - length)
    location = total - length;

  setKeyRange({location, length});
  // The target may delete this view in its action.
  const QPointer<DfOctavePickerView> alive(this);
  m_targetAction.send(this);
  if (alive)
    Q_EMIT keyRangeMoved(this);
}

void DfOctavePickerView::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) {
    event->ignore();
    return;
  }
  event->accept();
  const QPointF point = event->position();
  const QRectF marker = rangeRect();
  if (containsPoint(marker, point)) {
    m_mouseDownOffset = static_cast<float>(point.x() - marker.x());
    return;
  }

  m_mouseDownOffset = 0.0f;
  const QPointer<DfOctavePickerView> alive(this);
  setKeyRangeForMouseEvent(event, m_clickRaster);
  if (!alive)
    return;
  // Pushed back from the right end, the marker may have left the click
  // behind: dragging from there would make it jump, so drags are ignored.
  const QRectF moved = rangeRect();
  m_mouseDownOffset =
      containsPoint(moved, point) ? static_cast<float>(point.x() - moved.x()) : -1.0f;
}

void DfOctavePickerView::mouseMoveEvent(QMouseEvent* event) {
  if (!(event->buttons() & Qt::LeftButton)) {
    event->ignore();
    return;
  }
  event->accept();
  if (m_mouseDownOffset >= 0.0f)
    setKeyRangeForMouseEvent(event, m_dragRaster);
}

void DfOctavePickerView::mouseReleaseEvent(QMouseEvent* event) {
  event->accept();
}

void DfOctavePickerView::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  // The 2x artwork shrinks smoothly on a 1x screen that shows a 2x window.
  painter.setRenderHint(QPainter::SmoothPixmapTransform);
  painter.drawImage(QPointF(0.0, 0.0), m_bgImage);

  // A stored range may lie anywhere up to about 1e20 points, which must never
  // reach the painter (its device coordinates are integers): each cap is drawn
  // only when it touches the view, and the fill is cut to the view, which
  // shows the same picture because the fill is uniform across.
  const QRectF marker = rangeRect();
  const double left = marker.x();
  const double right = marker.x() + marker.width();
  const double viewWidth = width();
  const auto touchesView = [viewWidth](double x, const QImage& image) {
    return x < viewWidth && x + pointSize(image).width() > 0.0;
  };
  if (touchesView(left, m_rangeLeftEdgeImage))
    painter.drawImage(QPointF(left, 0.0), m_rangeLeftEdgeImage);
  if (touchesView(right, m_rangeRightEdgeImage))
    painter.drawImage(QPointF(right, 0.0), m_rangeRightEdgeImage);
  const double fillLeft = std::max(left + 1.0, -1.0);
  const double fillRight = std::min(right, viewWidth + 1.0);
  if (fillRight > fillLeft && !m_rangeFillImage.isNull())
    painter.drawImage(
        QRectF(fillLeft, 0.0, fillRight - fillLeft, pointSize(m_rangeFillImage).height()),
        m_rangeFillImage);

  // Over the marker. Qt's y axis points down: the picture's bottom edge stands
  // 2 points above the view's.
  const double keysTop =
      pointSize(m_bgImage).height() - kKeysBottom - pointSize(m_glyphKeysImage).height();
  painter.drawImage(QPointF(kKeysLeft, keysTop), m_glyphKeysImage);
}

DfOctavePickerViewShort::DfOctavePickerViewShort(QWidget* parent)
    : DfOctavePickerView(QRect(), false, parent) {}

DfOctavePickerViewShort::~DfOctavePickerViewShort() = default;
