#include <vtcore/ui/common/border_view/border_view.h>

#include <QEnterEvent>
#include <QPainter>

#include <algorithm>

namespace {

// The grip's size along and across the view's longer side, in logical pixels.
constexpr qreal kGripLength = 28.0;
constexpr qreal kGripThickness = 4.0;
// The handle a splitter usually shows: thick enough to grab, thin enough to
// stay out of the way.
constexpr int kPreferredThickness = 9;

QColor mixed(const QColor& a, const QColor& b, qreal amountOfB) {
  const qreal keep = 1.0 - amountOfB;
  return QColor::fromRgbF(static_cast<float>(a.redF() * keep + b.redF() * amountOfB),
                          static_cast<float>(a.greenF() * keep + b.greenF() * amountOfB),
                          static_cast<float>(a.blueF() * keep + b.blueF() * amountOfB));
}

} // namespace

DfBorderView::DfBorderView(QWidget* parent) : QWidget(parent) {
  setAttribute(Qt::WA_Hover);
  setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Preferred);
}

DfBorderView::~DfBorderView() = default;

void DfBorderView::setBorderEdges(Qt::Edges edges) {
  if (edges == m_borderEdges)
    return;
  m_borderEdges = edges;
  update();
}

void DfBorderView::setBorderColor(const QColor& color) {
  if (color == m_borderColor)
    return;
  m_borderColor = color;
  update();
}

void DfBorderView::setBackgroundColor(const QColor& color) {
  if (color == m_backgroundColor)
    return;
  m_backgroundColor = color;
  update();
}

void DfBorderView::setDrawsGrip(bool draws) {
  if (draws == m_drawsGrip)
    return;
  m_drawsGrip = draws;
  update();
}

QRectF DfBorderView::gripRect() const {
  if (!m_drawsGrip)
    return {};
  const QRectF bounds = rect();
  const bool alongWidth = bounds.width() >= bounds.height();
  const qreal longSide = alongWidth ? bounds.width() : bounds.height();
  const qreal shortSide = alongWidth ? bounds.height() : bounds.width();
  // Keep a pixel of air on every side, and the grip no longer than a third
  // of the handle so that it reads as a grip and not as a second border.
  const qreal length = std::min(kGripLength, longSide / 3.0);
  const qreal thickness = std::min(kGripThickness, shortSide - 2.0);
  if (length < 4.0 || thickness < 1.0)
    return {};
  QRectF grip(0, 0, alongWidth ? length : thickness, alongWidth ? thickness : length);
  grip.moveCenter(bounds.center());
  return grip;
}

QSize DfBorderView::sizeHint() const {
  return {kPreferredThickness * 4, kPreferredThickness};
}

QSize DfBorderView::minimumSizeHint() const {
  return {1, 1};
}

void DfBorderView::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  const QPalette& colors = palette();
  const QColor window = colors.color(QPalette::Window);

  painter.fillRect(rect(), m_backgroundColor.isValid()
                               ? m_backgroundColor
                               : mixed(window, colors.color(QPalette::Button), 0.5));

  const QColor border = m_borderColor.isValid() ? m_borderColor : colors.color(QPalette::Mid);
  const int right = width() - 1;
  const int bottom = height() - 1;
  painter.setPen(QPen(border, 0));
  if (m_borderEdges & Qt::TopEdge)
    painter.drawLine(0, 0, right, 0);
  if (m_borderEdges & Qt::BottomEdge)
    painter.drawLine(0, bottom, right, bottom);
  if (m_borderEdges & Qt::LeftEdge)
    painter.drawLine(0, 0, 0, bottom);
  if (m_borderEdges & Qt::RightEdge)
    painter.drawLine(right, 0, right, bottom);

  const QRectF grip = gripRect();
  if (grip.isEmpty())
    return;
  QColor ink = colors.color(QPalette::WindowText);
  ink.setAlphaF(m_hovered ? 0.65f : 0.35f);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  painter.setBrush(ink);
  const qreal radius = std::min(grip.width(), grip.height()) / 2.0;
  painter.drawRoundedRect(grip, radius, radius);
}

void DfBorderView::enterEvent(QEnterEvent* event) {
  m_hovered = true;
  update();
  QWidget::enterEvent(event);
}

void DfBorderView::leaveEvent(QEvent* event) {
  m_hovered = false;
  update();
  QWidget::leaveEvent(event);
}
