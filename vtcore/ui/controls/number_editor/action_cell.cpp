#include <vtcore/ui/controls/number_editor/action_cell.h>

#include <vtcore/ui/common/target_action/target_action.h>

#include <QApplication>
#include <QFontMetricsF>
#include <QMetaMethod>
#include <QMouseEvent>
#include <QPainter>

#include <algorithm>
#include <limits>

namespace {

// The index of the target's method `action` that takes one KwActionCell*, or -1.
int cellActionIndex(const QObject* target, const QByteArray& action) {
  if (!target || action.isEmpty())
    return -1;
  const QMetaObject* meta = target->metaObject();
  const int index = meta->indexOfMethod(action.constData());
  if (index < 0)
    return -1;
  const QMetaMethod method = meta->method(index);
  if (method.parameterCount() != 1 ||
      method.parameterMetaType(0) != QMetaType::fromType<KwActionCell*>())
    return -1;
  return index;
}

} // namespace

KwActionCell::KwActionCell() : m_font(QApplication::font()) {}

KwActionCell::KwActionCell(const QString& text) : KwActionCell() {
  m_stringValue = text;
}

KwActionCell::~KwActionCell() = default;

void KwActionCell::setStringValue(const QString& text) {
  m_stringValue = text;
  updateCell();
}

std::int32_t KwActionCell::intValue() const {
  const QString& text = m_stringValue;
  qsizetype i = 0;
  while (i < text.size() && text.at(i).isSpace())
    ++i;
  bool negative = false;
  if (i < text.size() && (text.at(i) == u'-' || text.at(i) == u'+')) {
    negative = text.at(i) == u'-';
    ++i;
  }
  // Accumulate in 64 bits and stop once past the 32-bit range: a long run of
  // digits then reads as the nearest limit instead of overflowing.
  constexpr std::int64_t limit = std::int64_t{std::numeric_limits<std::int32_t>::max()} + 1;
  std::int64_t magnitude = 0;
  for (; i < text.size() && text.at(i) >= u'0' && text.at(i) <= u'9'; ++i) {
    if (magnitude <= limit)
      magnitude = magnitude * 10 + (text.at(i).unicode() - u'0');
  }
  const std::int64_t value = negative ? -magnitude : magnitude;
  if (value > std::numeric_limits<std::int32_t>::max())
    return std::numeric_limits<std::int32_t>::max();
  if (value < std::numeric_limits<std::int32_t>::min())
    return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(value);
}

void KwActionCell::setIntValue(std::int32_t value) {
  m_stringValue = QString::number(value);
  updateCell();
}

void KwActionCell::setEnabled(bool enabled) {
  if (enabled == m_enabled)
    return;
  m_enabled = enabled;
  updateCell();
}

void KwActionCell::setAlignment(Qt::Alignment alignment) {
  m_alignment = alignment & Qt::AlignHorizontal_Mask;
  updateCell();
}

void KwActionCell::setFont(const QFont& font) {
  m_font = font;
  updateCell();
}

void KwActionCell::setAction(const char* action) {
  m_action = vtcore::normalizedAction(action);
}

bool KwActionCell::targetRespondsToAction() const {
  return cellActionIndex(m_target.data(), m_action) >= 0;
}

bool KwActionCell::sendActionToTarget() {
  QObject* target = m_target.data();
  const int index = cellActionIndex(target, m_action);
  if (index < 0)
    return false;
  KwActionCell* self = this;
  void* arguments[] = {nullptr, &self};
  QMetaObject::metacall(target, QMetaObject::InvokeMetaMethod, index, arguments);
  return true;
}

void KwActionCell::updateCell() {
  if (QWidget* view = m_controlView.data())
    view->update();
}

QSizeF KwActionCell::cellSize() const {
  constexpr qreal huge = 1.0e9;
  return cellSizeForBounds(QRectF(0, 0, huge, huge));
}

QSizeF KwActionCell::cellSizeForBounds(const QRectF& bounds) const {
  const QFontMetricsF metrics(m_font);
  return {std::clamp(metrics.horizontalAdvance(m_stringValue), 0.0, std::max(0.0, bounds.width())),
          std::clamp(metrics.height(), 0.0, std::max(0.0, bounds.height()))};
}

void KwActionCell::drawWithFrame(const QRectF& frame, QWidget* view, QPainter& painter) {
  drawInteriorWithFrame(frame, view, painter);
}

void KwActionCell::drawInteriorWithFrame(const QRectF& frame, QWidget* view, QPainter& painter) {
  m_controlView = view;
  painter.save();
  painter.setFont(m_font);
  if (view)
    painter.setPen(view->palette().color(QPalette::WindowText));
  painter.drawText(frame, static_cast<int>(m_alignment | Qt::AlignVCenter), m_stringValue);
  painter.restore();
}

bool KwActionCell::trackMouse(const QMouseEvent& event, const QRectF& cellFrame, QWidget* view,
                              bool /*untilMouseUp*/) {
  if (!m_enabled)
    return false;
  return startTracking(event.position() - cellFrame.topLeft(), view);
}

bool KwActionCell::startTracking(QPointF /*startPoint*/, QWidget* /*view*/) {
  return m_editable;
}

bool KwActionCell::continueTracking(QPointF /*lastPoint*/, QPointF /*currentPoint*/,
                                    QWidget* /*view*/) {
  return true;
}

void KwActionCell::stopTracking(QPointF /*lastPoint*/, QPointF /*stopPoint*/, QWidget* /*view*/,
                                bool /*mouseIsUp*/) {}

void KwActionCell::scrollWheel(QWheelEvent* /*event*/) {}

void KwActionCell::keyDown(QKeyEvent* /*event*/) {}
