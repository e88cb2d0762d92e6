// The Qt Designer plugin of vtcore-ui: one collection holding an entry for
// each of the library's widgets that a form places by hand.
//
// Designer shows the entries in its widget box under "VTCore"; QUiLoader
// creates the same widgets through this plugin when it loads a form at run
// time. uic needs no plugin: it writes the header and the constructor call
// from the form's <customwidgets> section, which each entry's DOM XML fills.
#pragma once

#include <QObject>
#include <QtUiPlugin/QDesignerCustomWidgetCollectionInterface>
#include <QtUiPlugin/QDesignerCustomWidgetInterface>

#include <functional>

namespace vtcore::designer {

/// What Designer shows of one widget, and how the plugin makes it.
struct WidgetEntry {
  QString className;
  QString header;
  QString toolTip;
  QString iconImage;
  QString domXml;
  bool isContainer = false;
  std::function<QWidget*(QWidget* parent)> make;
};

/// One widget of the collection.
class WidgetPlugin : public QObject, public QDesignerCustomWidgetInterface {
  Q_OBJECT
  Q_INTERFACES(QDesignerCustomWidgetInterface)
public:
  WidgetPlugin(WidgetEntry entry, QObject* parent);

  QString name() const override { return m_entry.className; }
  QString group() const override;
  QString toolTip() const override { return m_entry.toolTip; }
  QString whatsThis() const override { return m_entry.toolTip; }
  QString includeFile() const override { return m_entry.header; }
  QIcon icon() const override;
  bool isContainer() const override { return m_entry.isContainer; }
  QWidget* createWidget(QWidget* parent) override;
  bool isInitialized() const override { return m_initialized; }
  void initialize(QDesignerFormEditorInterface* core) override;
  QString domXml() const override { return m_entry.domXml; }

private:
  WidgetEntry m_entry;
  bool m_initialized = false;
};

/// The collection Designer and QUiLoader load.
class WidgetCollection : public QObject, public QDesignerCustomWidgetCollectionInterface {
  Q_OBJECT
  Q_PLUGIN_METADATA(IID "org.qt-project.Qt.QDesignerCustomWidgetCollectionInterface")
  Q_INTERFACES(QDesignerCustomWidgetCollectionInterface)
public:
  explicit WidgetCollection(QObject* parent = nullptr);

  QList<QDesignerCustomWidgetInterface*> customWidgets() const override { return m_widgets; }

private:
  QList<QDesignerCustomWidgetInterface*> m_widgets;
};

} // namespace vtcore::designer
