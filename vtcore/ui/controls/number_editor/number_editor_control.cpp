#include <vtcore/ui/controls/number_editor/number_editor_control.h>

#include "detail/font_fit.h"
#include "detail/number_editor_accessible.h"

#include <vtcore/ui/common/timer/timer.h>

#include <QCborArray>
#include <QFontDatabase>
#include <QFontMetricsF>
#include <QPointer>
#include <QResizeEvent>

#include <algorithm>
#include <cmath>

namespace {

constexpr double kLongClickSeconds = 0.6;
constexpr qreal kSystemFontSize = 12.0;

const QString kValueKey = QStringLiteral("NUMBEREDITOR_VALUE");
const QString kContinuousKey = QStringLiteral("NUMBEREDITOR_CONTINUOUS");
const QString kCustomSeparatorWidthsKey = QStringLiteral("NUMBEREDITOR_CUSTOMSEPARATORWIDTHS");
const QString kShadowColorKey = QStringLiteral("NUMBEREDITOR_SHADOWCOLOR");
const QString kFrameKey = QStringLiteral("CONTROL_FRAME");
const QString kEnabledKey = QStringLiteral("CONTROL_ENABLED");
const QString kFontKey = QStringLiteral("CONTROL_FONT");

DfNumberEditorControl::CellClass& defaultCellClass() {
  static DfNumberEditorControl::CellClass cellClass;
  return cellClass;
}

QFont systemFontOfSize(qreal size) {
  QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
  font.setPointSizeF(size);
  return font;
}

} // namespace

// --- Delegate defaults: not answered ---

std::optional<std::vector<std::int32_t>>
DfNumberEditorDelegate::numberEditorControl(DfNumberEditorControl* /*control*/,
                                            std::int64_t /*calculateCellValuesFromValue*/) {
  return std::nullopt;
}

std::optional<std::int64_t> DfNumberEditorDelegate::numberEditorControl(
    DfNumberEditorControl* /*control*/,
    const std::vector<std::int32_t>& /*calculateValueFromCellValues*/) {
  return std::nullopt;
}

void DfNumberEditorDelegate::numberEditorControl(DfNumberEditorControl* /*control*/,
                                                 KwNumberEditorCell* /*valueOfCellChanged*/) {}

std::optional<std::int64_t>
DfNumberEditorDelegate::numberEditorControl(DfNumberEditorControl* /*control*/,
                                            GetAccessibilityMinValueForEditorCellAtIndex) {
  return std::nullopt;
}

std::optional<std::int64_t>
DfNumberEditorDelegate::numberEditorControl(DfNumberEditorControl* /*control*/,
                                            GetAccessibilityMaxValueForEditorCellAtIndex) {
  return std::nullopt;
}

// --- Construction and archiving ---

DfNumberEditorControl::DfNumberEditorControl(QWidget* parent) : KwCellGroupControl(parent) {
  initialize();
}

DfNumberEditorControl::DfNumberEditorControl(const QRect& frame, QWidget* parent)
    : KwCellGroupControl(parent) {
  setGeometry(frame);
  initialize();
}

DfNumberEditorControl::DfNumberEditorControl(const QCborMap& coder, QWidget* parent)
    : KwCellGroupControl(parent) {
  const QCborArray frame = coder.value(kFrameKey).toArray();
  if (frame.size() == 4) {
    const QRect rect(
        static_cast<int>(frame.at(0).toInteger()), static_cast<int>(frame.at(1).toInteger()),
        static_cast<int>(std::clamp<qint64>(frame.at(2).toInteger(), 0, QWIDGETSIZE_MAX)),
        static_cast<int>(std::clamp<qint64>(frame.at(3).toInteger(), 0, QWIDGETSIZE_MAX)));
    setGeometry(rect);
  }
  initialize();
  if (coder.value(kEnabledKey).isBool())
    setEnabled(coder.value(kEnabledKey).toBool());
  QFont archivedFont;
  if (coder.value(kFontKey).isString() && archivedFont.fromString(coder.value(kFontKey).toString()))
    setFont(archivedFont);
  if (coder.value(kContinuousKey).isBool())
    m_sendActionContinuous = coder.value(kContinuousKey).toBool();
  if (coder.value(kCustomSeparatorWidthsKey).isBool())
    m_useCustomSeparatorWidths = coder.value(kCustomSeparatorWidthsKey).toBool();
  if (coder.value(kShadowColorKey).isString()) {
    const QColor color = QColor::fromString(coder.value(kShadowColorKey).toString());
    if (color.isValid())
      setShadowEightColor(color);
  }
  if (coder.value(kValueKey).isInteger())
    setValue(coder.value(kValueKey).toInteger());
  updateOldValue();
}

DfNumberEditorControl::~DfNumberEditorControl() = default;

void DfNumberEditorControl::initialize() {
  vtcore::detail::installNumberEditorAccessibility();
  m_cellClass = defaultCellClass();
  m_sendActionContinuous = true;
  setDrawsBackground(false);
  std::unique_ptr<KwNumberEditorCell> cell = makeCell();
  cell->setEditable(true);
  cell->setIntValue(0);
  cell->setScrollable(false);
  cell->setWraps(false);
  addCell(std::move(cell), QSizeF(size()));
  setAlignment(Qt::AlignRight);
  setFont(systemFontOfSize(kSystemFontSize));
  setPlaceHolderString(QStringLiteral("000"), 0);
  recalculateFontSize();
}

void DfNumberEditorControl::setCellClassForNewControls(CellClass cellClass) {
  defaultCellClass() = std::move(cellClass);
}

void DfNumberEditorControl::setCellClass(CellClass cellClass) {
  m_cellClass = std::move(cellClass);
}

std::unique_ptr<KwNumberEditorCell> DfNumberEditorControl::makeCell() const {
  std::unique_ptr<KwNumberEditorCell> cell;
  if (m_cellClass)
    cell = m_cellClass();
  if (!cell)
    cell = std::make_unique<KwNumberEditorCell>();
  return cell;
}

void DfNumberEditorControl::encodeWithCoder(QCborMap& coder) const {
  const QRect frame = geometry();
  coder.insert(kFrameKey, QCborArray{frame.x(), frame.y(), frame.width(), frame.height()});
  coder.insert(kEnabledKey, isEnabled());
  coder.insert(kFontKey, font().toString());
  coder.insert(kValueKey, static_cast<qint64>(m_value));
  coder.insert(kContinuousKey, m_sendActionContinuous);
  coder.insert(kCustomSeparatorWidthsKey, m_useCustomSeparatorWidths);
  if (m_shadowEightColor.isValid())
    coder.insert(kShadowColorKey, m_shadowEightColor.name(QColor::HexArgb));
}

// --- Value model ---

DfNumberEditorDelegate* DfNumberEditorControl::numberEditorDelegate() const {
  return dynamic_cast<DfNumberEditorDelegate*>(delegate());
}

void DfNumberEditorControl::setDelegate(DfNumberEditorDelegate* delegate) {
  KwCellGroupControl::setDelegate(delegate);
}

void DfNumberEditorControl::setValue(std::int64_t value) {
  m_value = value;
  calculateCellValuesFromValue();
}

void DfNumberEditorControl::calculateCellValuesFromValue() {
  if (DfNumberEditorDelegate* delegate = numberEditorDelegate()) {
    if (const auto numbers = delegate->numberEditorControl(this, m_value)) {
      const int count = std::min(editorCellCount(), static_cast<int>(numbers->size()));
      for (int i = 0; i < count; ++i) {
        if (KwNumberEditorCell* cell = editorCellAtIndex(i))
          cell->setIntValue((*numbers)[static_cast<std::size_t>(i)]);
      }
      return;
    }
  }
  // Without a split, cell 0 shows the low 32 bits, as a plain int would.
  if (KwNumberEditorCell* cell = editorCellAtIndex(0))
    cell->setIntValue(static_cast<std::int32_t>(m_value));
}

std::int64_t DfNumberEditorControl::calculateValueFromCellValues() const {
  if (DfNumberEditorDelegate* delegate = numberEditorDelegate()) {
    const std::vector<std::int32_t> numbers = editorCellValues();
    if (const auto value =
            delegate->numberEditorControl(const_cast<DfNumberEditorControl*>(this), numbers))
      return *value;
  }
  const KwNumberEditorCell* cell = editorCellAtIndex(0);
  return cell ? std::int64_t{cell->intValue()} : 0;
}

void DfNumberEditorControl::valueOfCellChanged(KwNumberEditorCell* cell) {
  if (DfNumberEditorDelegate* delegate = numberEditorDelegate())
    delegate->numberEditorControl(this, cell);
  // After the delegate, which may have clamped the cell.
  m_value = calculateValueFromCellValues();
}

void DfNumberEditorControl::cellContentDidChange(KwActionCell* sender) {
  auto* cell = dynamic_cast<KwNumberEditorCell*>(sender);
  if (!cell || indexOfCell(cell) < 0)
    return;
  const QPointer<DfNumberEditorControl> self(this);
  valueOfCellChanged(cell);
  if (!self)
    return;
  if (!m_sendActionContinuous && mouseIsDown())
    m_needsToSendActionWhenMouseButtonGoesUp = true;
  else
    sendAction();
}

void DfNumberEditorControl::sendAction() {
  const QPointer<DfNumberEditorControl> self(this);
  m_targetAction.send(this);
  if (!self)
    return;
  Q_EMIT actionSent(this);
  if (!self)
    return;
  updateOldValue();
}

std::optional<std::int64_t>
DfNumberEditorControl::_askDelegateForAXMinValueForCell(const KwNumberEditorCell* cell) const {
  const int index = indexOfCell(cell);
  DfNumberEditorDelegate* delegate = numberEditorDelegate();
  if (index < 0 || index % 2 != 0 || !delegate)
    return std::nullopt;
  return delegate->numberEditorControl(
      const_cast<DfNumberEditorControl*>(this),
      DfNumberEditorDelegate::GetAccessibilityMinValueForEditorCellAtIndex{index / 2});
}

std::optional<std::int64_t>
DfNumberEditorControl::_askDelegateForAXMaxValueForCell(const KwNumberEditorCell* cell) const {
  const int index = indexOfCell(cell);
  DfNumberEditorDelegate* delegate = numberEditorDelegate();
  if (index < 0 || index % 2 != 0 || !delegate)
    return std::nullopt;
  return delegate->numberEditorControl(
      const_cast<DfNumberEditorControl*>(this),
      DfNumberEditorDelegate::GetAccessibilityMaxValueForEditorCellAtIndex{index / 2});
}

// --- Mouse and long click ---

void DfNumberEditorControl::setLongClickAction(const char* action) {
  m_longClickAction = vtcore::normalizedAction(action);
}

void DfNumberEditorControl::mouseButtonWentDown() {
  m_needsToSendActionWhenMouseButtonGoesUp = false;
  m_longClickTimer.reset();
  if (!m_longClickAction.isEmpty()) {
    // KwTimer runs in nested event loops too, so the long click also fires
    // while a drag is being tracked.
    m_longClickTimer = std::make_unique<KwTimer>(kLongClickSeconds, this,
                                                 "longClickTimeOut(KwTimer*)", QVariant(), false);
    m_longClickTimer->start();
  }
}

void DfNumberEditorControl::mouseButtonWentUp() {
  m_longClickTimer.reset();
  if (isMouseTrackingActive() && m_needsToSendActionWhenMouseButtonGoesUp)
    sendAction();
  m_needsToSendActionWhenMouseButtonGoesUp = false;
}

void DfNumberEditorControl::longClickTimeOut(KwTimer* timer) {
  if (!timer || timer != m_longClickTimer.get())
    return;
  // KwTimer allows its target to destroy it inside the action it delivers.
  m_longClickTimer.reset();
  const QPointer<DfNumberEditorControl> self(this);
  endMouseTrackingAsMouseUp();
  if (!self)
    return;
  vtcore::sendAction(target(), m_longClickAction.constData(), this);
  if (!self)
    return;
  Q_EMIT longClicked(this);
}

// --- Cells ---

void DfNumberEditorControl::setUpAddedCellAttributes(KwActionCell* cell) {
  KwCellGroupControl::setUpAddedCellAttributes(cell);
  const int index = indexOfCell(cell);
  if (auto* number = dynamic_cast<KwNumberEditorCell*>(cell)) {
    if (index % 2 == 0)
      number->setShadowEightColor(m_shadowEightColor);
    else
      number->setAlignment(Qt::AlignHCenter);
    number->setDrawsBackground(false);
  }
  cell->setBezeled(false);
  cell->setBordered(false);
  cell->setTarget(this);
  cell->setAction("cellContentDidChange(KwActionCell*)");
}

void DfNumberEditorControl::setEditorCellCount(int count) {
  count = std::max(0, count);
  removeAllCells();
  m_separatorWidths.assign(static_cast<std::size_t>(std::max(0, count - 1)), -1.0);
  const QSizeF cellSize(0, height());
  for (int i = 0; i < count; ++i) {
    std::unique_ptr<KwNumberEditorCell> editor = makeCell();
    editor->setEditable(true);
    editor->setStringValue(QString());
    editor->setIntValue(0);
    editor->setScrollable(false);
    editor->setWraps(false);
    editor->setPlaceHolderString(QStringLiteral(".00"));
    addCell(std::move(editor), cellSize);
    if (i + 1 < count) {
      std::unique_ptr<KwNumberEditorCell> separator = makeCell();
      separator->setStringValue(QStringLiteral("/"));
      separator->setEditable(false);
      separator->setScrollable(false);
      separator->setWraps(false);
      separator->setHorizontalTextInsets(0);
      addCell(std::move(separator), cellSize);
    }
  }
  recalculateFontSize();
}

int DfNumberEditorControl::editorCellCount() const {
  return (cellCount() + 1) / 2;
}

int DfNumberEditorControl::separatorCellCount() const {
  return cellCount() / 2;
}

KwNumberEditorCell* DfNumberEditorControl::editorCellAtIndex(int index) const {
  if (index < 0 || index >= editorCellCount())
    return nullptr;
  return dynamic_cast<KwNumberEditorCell*>(cellAtIndex(index * 2));
}

KwNumberEditorCell* DfNumberEditorControl::separatorCellAtIndex(int index) const {
  if (index < 0 || index >= separatorCellCount())
    return nullptr;
  return dynamic_cast<KwNumberEditorCell*>(cellAtIndex(index * 2 + 1));
}

std::vector<std::int32_t> DfNumberEditorControl::editorCellValues() const {
  std::vector<std::int32_t> values;
  values.reserve(static_cast<std::size_t>(editorCellCount()));
  for (int i = 0; i < editorCellCount(); ++i) {
    const KwNumberEditorCell* cell = editorCellAtIndex(i);
    values.push_back(cell ? cell->intValue() : 0);
  }
  return values;
}

void DfNumberEditorControl::setMaxEditStringLen(int length, int ofEditorCellAtIndex) {
  if (KwNumberEditorCell* cell = editorCellAtIndex(ofEditorCellAtIndex))
    cell->setMaxEditStringLen(length);
}

int DfNumberEditorControl::maxEditStringLenOfEditorCellAtIndex(int index) const {
  const KwNumberEditorCell* cell = editorCellAtIndex(index);
  return cell ? cell->maxEditStringLen() : 0;
}

void DfNumberEditorControl::setPlaceHolderString(const QString& text, int ofEditorCellAtIndex) {
  if (KwNumberEditorCell* cell = editorCellAtIndex(ofEditorCellAtIndex))
    cell->setPlaceHolderString(text);
}

QString DfNumberEditorControl::placeHolderStringOfEditorCellAtIndex(int index) const {
  const KwNumberEditorCell* cell = editorCellAtIndex(index);
  return cell ? cell->placeHolderString() : QString();
}

void DfNumberEditorControl::setLeadingZeros(int count, int ofEditorCellAtIndex) {
  if (KwNumberEditorCell* cell = editorCellAtIndex(ofEditorCellAtIndex))
    cell->setLeadingZeros(count);
}

int DfNumberEditorControl::leadingZerosOfEditorCellAtIndex(int index) const {
  const KwNumberEditorCell* cell = editorCellAtIndex(index);
  return cell ? cell->leadingZeros() : 0;
}

void DfNumberEditorControl::setShadowEights(int count, int ofEditorCellAtIndex) {
  if (KwNumberEditorCell* cell = editorCellAtIndex(ofEditorCellAtIndex))
    cell->setShadowEights(count);
}

int DfNumberEditorControl::shadowEightsOfEditorCellAtIndex(int index) const {
  const KwNumberEditorCell* cell = editorCellAtIndex(index);
  return cell ? cell->shadowEights() : 0;
}

void DfNumberEditorControl::setString(const QString& text, int ofSeparatorCellAtIndex) {
  if (KwNumberEditorCell* cell = separatorCellAtIndex(ofSeparatorCellAtIndex))
    cell->setStringValue(text);
}

QString DfNumberEditorControl::stringOfSeparatorCellAtIndex(int index) const {
  const KwNumberEditorCell* cell = separatorCellAtIndex(index);
  return cell ? cell->stringValue() : QString();
}

QStringList DfNumberEditorControl::separatorStrings() const {
  QStringList strings;
  for (int i = 0; i < separatorCellCount(); ++i)
    strings.append(stringOfSeparatorCellAtIndex(i));
  return strings;
}

void DfNumberEditorControl::setSeparatorStrings(const QStringList& strings) {
  const int count = std::min(separatorCellCount(), static_cast<int>(strings.size()));
  for (int i = 0; i < count; ++i)
    setString(strings[i], i);
}

void DfNumberEditorControl::setWidth(qreal width, int ofSeparatorCellAtIndex) {
  if (ofSeparatorCellAtIndex < 0 || ofSeparatorCellAtIndex >= separatorCellCount())
    return;
  if (m_separatorWidths.size() < static_cast<std::size_t>(separatorCellCount()))
    m_separatorWidths.resize(static_cast<std::size_t>(separatorCellCount()), -1.0);
  m_separatorWidths[static_cast<std::size_t>(ofSeparatorCellAtIndex)] =
      std::isfinite(width) ? std::max<qreal>(0, width) : 0;
}

qreal DfNumberEditorControl::widthOfSeparatorCellAtIndex(int index) const {
  if (index < 0 || index >= separatorCellCount())
    return 0;
  const auto slot = static_cast<std::size_t>(index);
  if (slot < m_separatorWidths.size() && m_separatorWidths[slot] >= 0)
    return m_separatorWidths[slot];
  // Never set: the width the separator's text asks for.
  return separatorCellAtIndex(index) ? separatorCellAtIndex(index)->cellSize().width() : 0;
}

void DfNumberEditorControl::setUseCustomSeparatorWidths(bool use) {
  m_useCustomSeparatorWidths = use;
}

void DfNumberEditorControl::setShadowEightColor(const QColor& color) {
  m_shadowEightColor = color;
  for (int i = 0; i < editorCellCount(); ++i) {
    if (KwNumberEditorCell* cell = editorCellAtIndex(i))
      cell->setShadowEightColor(color);
  }
}

// --- Sizes ---

QFont DfNumberEditorControl::fittingFamilyFont() const {
  // fontconfig substitutes a family it does not have (aliases such as
  // "Monospace" included), so only a font without a family falls back to
  // the system font here.
  return font().family().isEmpty() ? systemFontOfSize(kSystemFontSize) : font();
}

qreal DfNumberEditorControl::fittingFontSize(qreal width) const {
  vtcore::detail::FontFitRequest request;
  request.available = width;
  for (int i = 0; i < separatorCellCount(); ++i) {
    const KwNumberEditorCell* separator = separatorCellAtIndex(i);
    if (m_useCustomSeparatorWidths) {
      request.available -= widthOfSeparatorCellAtIndex(i);
    } else if (separator) {
      request.texts.push_back(separator->stringValue());
      request.fixed += separator->horizontalTextInsetSum();
    }
  }
  for (int i = 0; i < editorCellCount(); ++i) {
    if (const KwNumberEditorCell* editor = editorCellAtIndex(i)) {
      request.texts.push_back(editor->placeHolderString());
      request.fixed += editor->horizontalTextInsetSum();
    }
  }
  request.font = fittingFamilyFont();
  return vtcore::detail::fitFontSize(request);
}

void DfNumberEditorControl::recalculateFontSize() {
  QFont fitted = fittingFamilyFont();
  fitted.setPointSizeF(fittingFontSize(width()));
  m_fittedWidth = width();
  setFont(fitted);
  recalculateCellSizes();
  update();
}

void DfNumberEditorControl::recalculateCellSizes() {
  if (cellCount() == 1) {
    setFrameOfCell(QRectF(QPointF(0, 0), QSizeF(size())), 0);
    return;
  }
  for (int i = 0; i < cellCount(); ++i) {
    KwActionCell* cell = cellAtIndex(i);
    const bool separator = i % 2 == 1;
    const qreal cellWidth = separator && m_useCustomSeparatorWidths
                                ? widthOfSeparatorCellAtIndex(i / 2)
                                : cell->cellSize().width();
    setSizeOfCell(QSizeF(cellWidth, height()), i);
  }
  recalculateCellPositions();
}

QSize DfNumberEditorControl::sizeForCurrentFont() const {
  const QFontMetricsF metrics(font());
  qreal total = 0;
  qreal tallest = 0;
  for (int i = 0; i < cellCount(); ++i) {
    const auto* cell = dynamic_cast<const KwNumberEditorCell*>(cellAtIndex(i));
    if (!cell)
      continue;
    const bool separator = i % 2 == 1;
    if (separator && m_useCustomSeparatorWidths)
      total += widthOfSeparatorCellAtIndex(i / 2);
    else
      total +=
          metrics.horizontalAdvance(separator ? cell->stringValue() : cell->placeHolderString());
    total += cell->horizontalTextInsetSum();
    tallest = std::max(tallest, std::ceil(metrics.height() + 2 * cell->verticalTextInset()));
  }
  return {static_cast<int>(std::ceil(total)), static_cast<int>(tallest)};
}

void DfNumberEditorControl::adjustCellsAndControlSizeToFontSize(bool keepLeftEdge) {
  const QSize wanted = sizeForCurrentFont();
  QRect frame = geometry();
  if (!keepLeftEdge)
    frame.moveLeft(frame.x() - (wanted.width() - frame.width()));
  frame.setSize(wanted);
  m_fittedWidth = wanted.width();
  setGeometry(frame);
  recalculateCellSizes();
  update();
}

void DfNumberEditorControl::resizeEvent(QResizeEvent* event) {
  KwCellGroupControl::resizeEvent(event);
  if (width() != m_fittedWidth)
    recalculateFontSize();
  else
    recalculateCellSizes();
}
