#include "detail/number_editor_accessible.h"

#include <vtcore/ui/controls/number_editor/number_editor_control.h>

#include <QAccessible>
#include <QAccessibleWidget>
#include <QPointer>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <unordered_map>

namespace {

// One editor cell, known by its control and editor number: cells are
// replaced when the editor count changes, the number stays meaningful.
class EditorCellAccessible : public QAccessibleInterface, public QAccessibleValueInterface {
public:
  EditorCellAccessible(DfNumberEditorControl* control, int editorIndex)
      : m_control(control), m_editorIndex(editorIndex) {}

  bool isValid() const override { return cell() != nullptr; }
  QObject* object() const override { return nullptr; }
  QWindow* window() const override {
    return m_control ? m_control->window()->windowHandle() : nullptr;
  }
  QAccessibleInterface* parent() const override {
    return m_control ? QAccessible::queryAccessibleInterface(m_control.data()) : nullptr;
  }
  QAccessibleInterface* child(int) const override { return nullptr; }
  QAccessibleInterface* childAt(int, int) const override { return nullptr; }
  int childCount() const override { return 0; }
  int indexOfChild(const QAccessibleInterface*) const override { return -1; }
  QAccessibleInterface* focusChild() const override { return nullptr; }

  QString text(QAccessible::Text t) const override {
    const KwNumberEditorCell* editor = cell();
    if (!editor)
      return {};
    switch (t) {
    case QAccessible::Name:
      return QStringLiteral("Field %1").arg(m_editorIndex + 1);
    case QAccessible::Value:
      return QString::number(editor->intValue());
    default:
      return {};
    }
  }
  void setText(QAccessible::Text, const QString&) override {}

  QRect rect() const override {
    if (!cell())
      return {};
    const QRect local = m_control->frameOfCellAtIndex(m_editorIndex * 2).toAlignedRect();
    return QRect(m_control->mapToGlobal(local.topLeft()), local.size());
  }
  QAccessible::Role role() const override { return QAccessible::SpinBox; }
  QAccessible::State state() const override {
    QAccessible::State state;
    const KwNumberEditorCell* editor = cell();
    if (!editor)
      return state;
    state.disabled = !editor->isEnabled() || !m_control->isEnabled();
    state.focusable = true;
    state.focused = editor->isEditing();
    state.editable = editor->isEditable();
    return state;
  }

  void* interface_cast(QAccessible::InterfaceType type) override {
    return type == QAccessible::ValueInterface ? static_cast<QAccessibleValueInterface*>(this)
                                               : nullptr;
  }

  QVariant currentValue() const override {
    const KwNumberEditorCell* editor = cell();
    return editor ? QVariant(editor->intValue()) : QVariant();
  }
  void setCurrentValue(const QVariant& value) override {
    if (KwNumberEditorCell* editor = cell()) {
      bool ok = false;
      const qlonglong number = value.toLongLong(&ok);
      if (ok)
        editor->setNewValueAndSendAction(static_cast<std::int32_t>(
            std::clamp<qlonglong>(number, std::numeric_limits<std::int32_t>::min(),
                                  std::numeric_limits<std::int32_t>::max())));
    }
  }
  QVariant maximumValue() const override {
    const KwNumberEditorCell* editor = cell();
    if (!editor)
      return {};
    const auto answer = m_control->_askDelegateForAXMaxValueForCell(editor);
    return answer ? QVariant(static_cast<qlonglong>(*answer)) : QVariant();
  }
  QVariant minimumValue() const override {
    const KwNumberEditorCell* editor = cell();
    if (!editor)
      return {};
    const auto answer = m_control->_askDelegateForAXMinValueForCell(editor);
    return answer ? QVariant(static_cast<qlonglong>(*answer)) : QVariant();
  }
  QVariant minimumStepSize() const override {
    const KwNumberEditorCell* editor = cell();
    return editor ? QVariant(editor->minimumDelta()) : QVariant();
  }

private:
  KwNumberEditorCell* cell() const {
    return m_control ? m_control->editorCellAtIndex(m_editorIndex) : nullptr;
  }

  QPointer<DfNumberEditorControl> m_control;
  int m_editorIndex;
};

class NumberEditorAccessible : public QAccessibleWidget {
public:
  explicit NumberEditorAccessible(DfNumberEditorControl* control)
      : QAccessibleWidget(control, QAccessible::Grouping) {}

  ~NumberEditorAccessible() override {
    for (const auto& [index, id] : m_children)
      QAccessible::deleteAccessibleInterface(id);
  }

  int childCount() const override { return control() ? control()->editorCellCount() : 0; }

  QAccessibleInterface* child(int index) const override {
    if (index < 0 || index >= childCount())
      return nullptr;
    const auto found = m_children.find(index);
    if (found != m_children.end())
      return QAccessible::accessibleInterface(found->second);
    auto* made = new EditorCellAccessible(control(), index);
    m_children[index] = QAccessible::registerAccessibleInterface(made);
    return made;
  }

  int indexOfChild(const QAccessibleInterface* child) const override {
    for (const auto& [index, id] : m_children) {
      if (QAccessible::accessibleInterface(id) == child)
        return index < childCount() ? index : -1;
    }
    return -1;
  }

  QAccessibleInterface* childAt(int x, int y) const override {
    const DfNumberEditorControl* editor = control();
    if (!editor)
      return nullptr;
    const QPointF local = editor->mapFromGlobal(QPoint(x, y));
    for (int i = 0; i < editor->editorCellCount(); ++i) {
      if (editor->frameOfCellAtIndex(i * 2).contains(local))
        return child(i);
    }
    return nullptr;
  }

  QAccessibleInterface* focusChild() const override {
    const DfNumberEditorControl* editor = control();
    if (!editor || !editor->editingCell())
      return nullptr;
    return child(editor->indexOfCell(editor->editingCell()) / 2);
  }

  QString text(QAccessible::Text t) const override {
    if (t == QAccessible::Value && control())
      return QString::number(control()->value());
    return QAccessibleWidget::text(t);
  }

private:
  DfNumberEditorControl* control() const { return qobject_cast<DfNumberEditorControl*>(object()); }

  mutable std::unordered_map<int, QAccessible::Id> m_children;
};

QAccessibleInterface* numberEditorFactory(const QString& /*className*/, QObject* object) {
  if (auto* control = qobject_cast<DfNumberEditorControl*>(object))
    return new NumberEditorAccessible(control);
  return nullptr;
}

} // namespace

namespace vtcore::detail {

void installNumberEditorAccessibility() {
  static const bool installed = [] {
    QAccessible::installFactory(numberEditorFactory);
    return true;
  }();
  (void)installed;
}

} // namespace vtcore::detail
