// DfBorderView: a plain view that draws a border and a grip handle.
//
// It looks like a modern splitter handle in the current Qt style's palette:
// a flat background a shade off the window colour, hairline borders on the
// chosen edges, and a short rounded grip in the middle that lies along the
// view's longer side and darkens while the mouse is over the view. The
// splitter of the accessory container builds on it and adds the dragging.
#pragma once

#include <vtcore/export.h>

#include <QColor>
#include <QWidget>

/// A plain view that draws a border and a grip handle; see the top of this
/// file.
class VTCORE_UI_EXPORT DfBorderView : public QWidget {
  Q_OBJECT
public:
  /// A view with borders on all four edges, a grip and the palette's colours.
  explicit DfBorderView(QWidget* parent = nullptr);
  ~DfBorderView() override;

  /// The edges that get a border line; all four by default.
  ///@{
  /// The edges that get a border line; all four by default.
  Qt::Edges borderEdges() const { return m_borderEdges; }
  void setBorderEdges(Qt::Edges edges);
  ///@}

  /// The colour of the border lines. An invalid colour (the default) means
  /// the palette's mid colour. The view keeps its own copy.
  ///@{
  /// The colour of the border lines. An invalid colour (the default) means
  /// the palette's mid colour. The view keeps its own copy.
  QColor borderColor() const { return m_borderColor; }
  void setBorderColor(const QColor& color);
  ///@}

  /// The background colour. An invalid colour (the default) means a shade
  /// between the palette's window and button colours.
  ///@{
  /// The background colour. An invalid colour (the default) means a shade
  /// between the palette's window and button colours.
  QColor backgroundColor() const { return m_backgroundColor; }
  void setBackgroundColor(const QColor& color);
  ///@}

  /// Whether the grip handle is drawn; yes by default.
  ///@{
  /// Whether the grip handle is drawn; yes by default.
  bool drawsGrip() const { return m_drawsGrip; }
  void setDrawsGrip(bool draws);
  ///@}

  /// The grip's rectangle in the view's coordinates (empty when the grip is
  /// not drawn or the view is too small for it).
  QRectF gripRect() const;

  /// Room for the grip along the longer side and the borders across it.
  ///@{
  QSize sizeHint() const override;
  QSize minimumSizeHint() const override;
  ///@}

protected:
  /// Draws the background, the borders and the grip.
  void paintEvent(QPaintEvent* event) override;
  /// Darken the grip while the mouse is over the view, and lighten it again.
  ///@{
  void enterEvent(QEnterEvent* event) override;
  void leaveEvent(QEvent* event) override;
  ///@}

private:
  Qt::Edges m_borderEdges = Qt::TopEdge | Qt::BottomEdge | Qt::LeftEdge | Qt::RightEdge;
  QColor m_borderColor;
  QColor m_backgroundColor;
  bool m_drawsGrip = true;
  bool m_hovered = false;
};
