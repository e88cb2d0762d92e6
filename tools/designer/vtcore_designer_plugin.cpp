#include "vtcore_designer_plugin.h"

#include <vtcore/ui/common/images/images.h>
#include <vtcore/ui/controls/number_editor/number_editor_control.h>
#include <vtcore/ui/controls/octave_picker/octave_picker_view.h>
#include <vtcore/ui/views/accessory/accessory_container_view.h>
#include <vtcore/ui/views/accessory/accessory_splitter.h>

#include <QIcon>
#include <QImage>
#include <QPixmap>

namespace vtcore::designer {

namespace {

// The <ui> snippet Designer drops into a form: the default geometry and
// properties of a new widget, and the header uic includes (global, as an
// application includes an installed library's headers).
QString widgetXml(const QString& className, const QString& objectName, const QString& header,
                  const QString& body, bool container = false) {
  return QStringLiteral("<ui language=\"c++\">\n"
                        " <widget class=\"%1\" name=\"%2\">\n%4 </widget>\n"
                        " <customwidgets>\n  <customwidget>\n   <class>%1</class>\n"
                        "   <extends>QWidget</extends>\n"
                        "   <header location=\"global\">%3</header>\n"
                        "   <container>%5</container>\n"
                        "  </customwidget>\n </customwidgets>\n</ui>\n")
      .arg(className, objectName, header, body,
           container ? QStringLiteral("1") : QStringLiteral("0"));
}

QString geometry(int width, int height) {
  return QStringLiteral("  <property name=\"geometry\">\n   <rect><x>0</x><y>0</y>"
                        "<width>%1</width><height>%2</height></rect>\n  </property>\n")
      .arg(width)
      .arg(height);
}

QString childWidget(const QString& name, int x, int width, int height) {
  return QStringLiteral("  <widget class=\"QWidget\" name=\"%1\">\n"
                        "   <property name=\"geometry\">\n    <rect><x>%2</x><y>0</y>"
                        "<width>%3</width><height>%4</height></rect>\n   </property>\n"
                        "  </widget>\n")
      .arg(name)
      .arg(x)
      .arg(width)
      .arg(height);
}

QList<WidgetEntry> entries() {
  const QString numberEditor =
      QStringLiteral("vtcore/ui/controls/number_editor/number_editor_control.h");
  const QString octavePicker =
      QStringLiteral("vtcore/ui/controls/octave_picker/octave_picker_view.h");
  const QString container = QStringLiteral("vtcore/ui/views/accessory/accessory_container_view.h");
  const QString splitter = QStringLiteral("vtcore/ui/views/accessory/accessory_splitter.h");
  return {
      {QStringLiteral("DfNumberEditorControl"), numberEditor,
       QStringLiteral("A number shown as a row of editable cells with separators, such as "
                      "bar / beat / division / tick"),
       QStringLiteral("vtcore-logo"),
       widgetXml(QStringLiteral("DfNumberEditorControl"), QStringLiteral("numberEditor"),
                 numberEditor,
                 geometry(160, 24) +
                     QStringLiteral(
                         "  <property name=\"editorCellCount\"><number>4</number></property>\n")),
       false, [](QWidget* parent) { return new DfNumberEditorControl(parent); }},
      {QStringLiteral("DfOctavePickerView"), octavePicker,
       QStringLiteral("A piano keyboard with a key-range marker the user moves (75 white keys)"),
       QStringLiteral("octave-glyphKeys"),
       widgetXml(QStringLiteral("DfOctavePickerView"), QStringLiteral("octavePicker"), octavePicker,
                 QString()),
       false, [](QWidget* parent) { return new DfOctavePickerView(parent); }},
      {QStringLiteral("DfOctavePickerViewShort"), octavePicker,
       QStringLiteral("The short piano keyboard with a key-range marker (74 white keys)"),
       QStringLiteral("octave-glyphKeys-short"),
       widgetXml(QStringLiteral("DfOctavePickerViewShort"), QStringLiteral("octavePickerShort"),
                 octavePicker, QString()),
       false, [](QWidget* parent) { return new DfOctavePickerViewShort(parent); }},
      {QStringLiteral("VTAccessoryContainerView"), container,
       QStringLiteral("A main view and an accessory panel that slides in and out beside it: "
                      "its first child is the main view, its second the panel"),
       QStringLiteral("vtcore-logo"),
       widgetXml(QStringLiteral("VTAccessoryContainerView"), QStringLiteral("accessoryContainer"),
                 container,
                 geometry(400, 200) + childWidget(QStringLiteral("mainView"), 150, 250, 200) +
                     childWidget(QStringLiteral("slideView"), 0, 150, 200),
                 true),
       true, [](QWidget* parent) { return new VTAccessoryContainerView(parent); }},
      {QStringLiteral("VTAccessorySplitter"), splitter,
       QStringLiteral("The drag handle on the edge of an accessory panel"),
       QStringLiteral("vtcore-logo"),
       widgetXml(QStringLiteral("VTAccessorySplitter"), QStringLiteral("accessorySplitter"),
                 splitter, geometry(8, 100)),
       false, [](QWidget* parent) { return new VTAccessorySplitter(parent); }},
  };
}

} // namespace

WidgetPlugin::WidgetPlugin(WidgetEntry entry, QObject* parent)
    : QObject(parent), m_entry(std::move(entry)) {}

QString WidgetPlugin::group() const {
  return QStringLiteral("VTCore");
}

QIcon WidgetPlugin::icon() const {
  QImage image = kw_loadQuillonBundleImage(m_entry.iconImage);
  // A whole keyboard shrunk to an icon is a line: an octave of it reads as
  // a keyboard.
  if (image.width() > 2 * image.height())
    image = image.copy(0, 0, image.height() * 3 / 2, image.height());
  return QIcon(QPixmap::fromImage(image));
}

QWidget* WidgetPlugin::createWidget(QWidget* parent) {
  return m_entry.make(parent);
}

void WidgetPlugin::initialize(QDesignerFormEditorInterface*) {
  m_initialized = true;
}

WidgetCollection::WidgetCollection(QObject* parent) : QObject(parent) {
  for (WidgetEntry& entry : entries())
    m_widgets.append(new WidgetPlugin(std::move(entry), this));
}

} // namespace vtcore::designer
