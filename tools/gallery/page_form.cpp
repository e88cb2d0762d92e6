// Gallery sample of forms: one page laid out in Qt Designer (form_page.ui,
// compiled by uic at build time) holding every VTCore widget a form can
// place, each wired to a readout that follows it.
#include "gallery.h"
#include "ui_form_page.h"

#include <vtcore/ui.h>

namespace {

// Follows the panel: its size, or what it is doing.
class PanelReadout : public QObject, public VTAccessoryContainerViewDelegate {
public:
  PanelReadout(QLabel* label, VTAccessoryContainerView* container, QObject* parent)
      : QObject(parent), m_label(label), m_container(container) {}

  void accessoryContainerViewWillBeginAnimation(VTAccessoryContainerView*) override { show(); }
  void accessoryContainerViewDidEndAnimation(VTAccessoryContainerView*) override { show(); }
  void accessoryContainerViewDidEndUserResize(VTAccessoryContainerView*) override { show(); }

  void show() {
    if (m_container->isSlidingIn())
      m_label->setText(QStringLiteral("panel sliding in"));
    else if (m_container->isSlidingOut())
      m_label->setText(QStringLiteral("panel sliding out"));
    else if (m_container->isSlidedOut())
      m_label->setText(QStringLiteral("panel hidden"));
    else
      m_label->setText(QStringLiteral("panel %1 pt").arg(m_container->currentSlideSize()));
  }

private:
  QLabel* m_label;
  VTAccessoryContainerView* m_container;
};

QString describeKeys(const DfOctavePickerView* picker) {
  const vtcore::KeyRange range = picker->keyRange();
  if (range.length == 0)
    return QStringLiteral("no keys");
  return QStringLiteral("keys %1 to %2").arg(range.location).arg(range.location + range.length - 1);
}

QWidget* makeFormSample() {
  auto* page = new QWidget;
  Ui::FormPage form;
  form.setupUi(page);

  QObject::connect(form.numberEditor, &DfNumberEditorControl::actionSent, form.numberReadout,
                   [label = form.numberReadout](DfNumberEditorControl* editor) {
                     label->setText(QStringLiteral("value %1").arg(editor->value()));
                   });
  for (auto [picker, label] :
       {std::pair{form.octavePicker, form.octaveReadout},
        std::pair<DfOctavePickerView*, QLabel*>{form.shortOctavePicker, form.shortOctaveReadout}}) {
    label->setText(describeKeys(picker));
    QObject::connect(picker, &DfOctavePickerView::keyRangeMoved, label,
                     [label](DfOctavePickerView* moved) { label->setText(describeKeys(moved)); });
  }

  // The container took its views from the form when it was polished; the
  // splitter is told which container it drives, which a form cannot say.
  form.accessoryContainer->ensurePolished();
  form.panelEdge->setSplitView(form.accessoryContainer);
  form.panelEdge->setBorderEdges(Qt::RightEdge);
  vtcore::setAutoresizingMask(form.panelEdge, vtcore::AutoresizingFlag::FlexibleLeftMargin |
                                                  vtcore::AutoresizingFlag::FlexibleHeight);
  auto* readout = new PanelReadout(form.panelReadout, form.accessoryContainer, page);
  form.accessoryContainer->setDelegate(readout);
  readout->show();
  QObject::connect(form.togglePanel, &QPushButton::clicked, form.accessoryContainer,
                   [container = form.accessoryContainer] { container->toggle(); });
  return page;
}

const vtcore::gallery::Sample formSample{
    40, "A Qt Designer form",
    "This page is a .ui form laid out in Qt Designer and compiled by uic: the number editor, "
    "both octave pickers and an accessory panel with its splitter, their properties set in the "
    "form. The labels on the right follow the widgets as you use them.",
    makeFormSample};

} // namespace
