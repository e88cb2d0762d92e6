// The Qt Designer plugin and forms that use VTCore's widgets: the plugin
// loaded the way Designer loads it, and the gallery's form built by uic at
// build time and by QUiLoader at run time.
#include "ui_form_page.h"

#include <vtcore/ui.h>

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QPluginLoader>
#include <QUiLoader>
#include <QXmlStreamReader>
#include <QtUiPlugin/QDesignerCustomWidgetCollectionInterface>
#include <gtest/gtest.h>

#include <memory>

namespace {

struct Expected {
  const char* className;
  bool isContainer;
};

constexpr Expected kWidgets[] = {
    {"DfNumberEditorControl", false},   {"DfOctavePickerView", false},
    {"DfOctavePickerViewShort", false}, {"VTAccessoryContainerView", true},
    {"VTAccessorySplitter", false},
};

QDesignerCustomWidgetCollectionInterface* loadCollection() {
  static QPluginLoader loader(QStringLiteral(VTCORE_DESIGNER_PLUGIN));
  return qobject_cast<QDesignerCustomWidgetCollectionInterface*>(loader.instance());
}

// The class of the <widget> element Designer drops, and its default size.
struct DroppedWidget {
  QString className;
  QSize size;
};

DroppedWidget readDomXml(const QString& xml) {
  DroppedWidget dropped;
  QXmlStreamReader reader(xml);
  bool inGeometry = false;
  QString field;
  while (!reader.atEnd()) {
    reader.readNext();
    if (reader.isStartElement()) {
      const auto name = reader.name();
      if (name == QLatin1String("widget") && dropped.className.isEmpty())
        dropped.className = reader.attributes().value(QLatin1String("class")).toString();
      else if (name == QLatin1String("property"))
        inGeometry = reader.attributes().value(QLatin1String("name")) == QLatin1String("geometry");
      field = reader.name().toString();
    } else if (reader.isCharacters() && inGeometry && !reader.isWhitespace()) {
      if (field == QLatin1String("width"))
        dropped.size.setWidth(reader.text().toInt());
      else if (field == QLatin1String("height"))
        dropped.size.setHeight(reader.text().toInt());
    } else if (reader.isEndElement() && reader.name() == QLatin1String("property")) {
      inGeometry = false;
    }
  }
  EXPECT_FALSE(reader.hasError()) << reader.errorString().toStdString();
  return dropped;
}

TEST(DesignerPlugin, OffersEveryWidgetInTheVTCoreGroupAndMakesIt) {
  QDesignerCustomWidgetCollectionInterface* collection = loadCollection();
  ASSERT_NE(collection, nullptr) << "the plugin does not load as a Designer collection";
  const QList<QDesignerCustomWidgetInterface*> widgets = collection->customWidgets();
  ASSERT_EQ(widgets.size(), static_cast<qsizetype>(std::size(kWidgets)));

  for (const Expected& expected : kWidgets) {
    SCOPED_TRACE(expected.className);
    QDesignerCustomWidgetInterface* plugin = nullptr;
    for (QDesignerCustomWidgetInterface* candidate : widgets) {
      if (candidate->name() == QLatin1String(expected.className))
        plugin = candidate;
    }
    ASSERT_NE(plugin, nullptr);
    EXPECT_EQ(plugin->group(), QStringLiteral("VTCore"));
    EXPECT_FALSE(plugin->toolTip().isEmpty());
    EXPECT_FALSE(plugin->icon().isNull());
    EXPECT_EQ(plugin->isContainer(), expected.isContainer);
    // uic writes this include into every application's generated code.
    EXPECT_TRUE(QFileInfo::exists(QStringLiteral(VTCORE_SOURCE_DIR "/") + plugin->includeFile()))
        << plugin->includeFile().toStdString();

    const DroppedWidget dropped = readDomXml(plugin->domXml());
    EXPECT_EQ(dropped.className, plugin->name());

    QWidget parent;
    QWidget* widget = plugin->createWidget(&parent);
    ASSERT_NE(widget, nullptr);
    EXPECT_STREQ(widget->metaObject()->className(), expected.className);
    EXPECT_EQ(widget->parentWidget(), &parent);
    // A widget without a default geometry in its XML has a size of its own.
    const QSize size = dropped.size.isValid() ? dropped.size : widget->sizeHint();
    EXPECT_GT(size.width(), 0);
    EXPECT_GT(size.height(), 0);
  }
}

// What a form sets by hand, including values out of range.
TEST(DesignerProperties, FormValuesTakeEffectAndBadOnesHaveADefinedResult) {
  DfNumberEditorControl editor;
  ASSERT_TRUE(editor.setProperty("editorCellCount", 3));
  EXPECT_EQ(editor.separatorCellCount(), 2);
  // More strings than separators: the extra ones are ignored.
  ASSERT_TRUE(editor.setProperty("separatorStrings", QStringList{":", ";", "!"}));
  EXPECT_EQ(editor.property("separatorStrings").toStringList(), (QStringList{":", ";"}));
  // Fewer: the rest keep theirs.
  ASSERT_TRUE(editor.setProperty("separatorStrings", QStringList{"-"}));
  EXPECT_EQ(editor.separatorStrings(), (QStringList{"-", ";"}));
  // The value is 64 bits wide through the property too.
  ASSERT_TRUE(editor.setProperty("value", qlonglong(1) << 40));
  EXPECT_EQ(editor.value(), std::int64_t(1) << 40);
  ASSERT_TRUE(editor.setProperty("editorCellCount", -2));
  EXPECT_EQ(editor.editorCellCount(), 0);
  EXPECT_TRUE(editor.separatorStrings().isEmpty());
  editor.setSeparatorStrings({"x"});

  DfOctavePickerView picker(nullptr);
  ASSERT_TRUE(picker.setProperty("keyRangeLocation", 30));
  ASSERT_TRUE(picker.setProperty("keyRangeLength", 12));
  EXPECT_EQ(picker.keyRange(), (vtcore::KeyRange{30, 12}));
  ASSERT_TRUE(picker.setProperty("keyRangeLocation", -5));
  EXPECT_EQ(picker.keyRange(), (vtcore::KeyRange{0, 12}));
  picker.setKeyRange({std::size_t(1) << 40, 3});
  EXPECT_EQ(picker.property("keyRangeLocation").toInt(), std::numeric_limits<int>::max());

  VTAccessoryContainerView container;
  ASSERT_TRUE(container.setProperty("minSlideSize", 40.0));
  ASSERT_TRUE(container.setProperty("slideOutTimeAmount", 0.25));
  EXPECT_FLOAT_EQ(container.minSlideFrameSizeValue(), 40.0f);
  EXPECT_DOUBLE_EQ(container.slideOutTimeAmount(), 0.25);
  // The alignment comes from the views' frames, never from a form.
  EXPECT_FALSE(container.setProperty("slideAlignment", 2));
  EXPECT_EQ(container.slideAlignment(), 0);
}

void expectFormTookEffect(QWidget* page) {
  auto* editor = page->findChild<DfNumberEditorControl*>(QStringLiteral("numberEditor"));
  ASSERT_NE(editor, nullptr);
  EXPECT_EQ(editor->editorCellCount(), 4);
  EXPECT_EQ(editor->separatorStrings(), (QStringList{".", ".", "."}));
  EXPECT_EQ(editor->value(), 1);

  auto* picker = page->findChild<DfOctavePickerView*>(QStringLiteral("octavePicker"));
  ASSERT_NE(picker, nullptr);
  EXPECT_EQ(picker->totalNumWhiteKeys(), 75);
  EXPECT_EQ(picker->keyRange(), (vtcore::KeyRange{21, 14}));
  auto* shortPicker =
      page->findChild<DfOctavePickerViewShort*>(QStringLiteral("shortOctavePicker"));
  ASSERT_NE(shortPicker, nullptr);
  EXPECT_EQ(shortPicker->totalNumWhiteKeys(), 74);
  EXPECT_EQ(shortPicker->clickRaster(), 1);

  auto* container =
      page->findChild<VTAccessoryContainerView*>(QStringLiteral("accessoryContainer"));
  ASSERT_NE(container, nullptr);
  EXPECT_FLOAT_EQ(container->maxSlideFrameSizeValue(), 260.0f);
  EXPECT_DOUBLE_EQ(container->slideInTimeAmount(), 0.3);
  // The views are the form's two children, in order, and the container has
  // read their frames: the panel is on the left, 140 points wide.
  ASSERT_NE(container->mainView(), nullptr);
  EXPECT_EQ(container->mainView()->objectName(), QStringLiteral("mainView"));
  ASSERT_NE(container->slideView(), nullptr);
  EXPECT_EQ(container->slideView()->objectName(), QStringLiteral("slideView"));
  EXPECT_EQ(container->slideAlignment(), 1);
  EXPECT_FLOAT_EQ(container->slidedInSize(), 140.0f);
  EXPECT_TRUE(container->isSlidedIn());
}

TEST(DesignerForms, QUiLoaderBuildsTheFormThroughThePlugin) {
  QUiLoader loader;
  loader.addPluginPath(QFileInfo(QStringLiteral(VTCORE_DESIGNER_PLUGIN)).absolutePath());
  for (const Expected& expected : kWidgets)
    EXPECT_TRUE(loader.availableWidgets().contains(QLatin1String(expected.className)))
        << expected.className;

  QFile file(QStringLiteral(VTCORE_FORM_PAGE));
  ASSERT_TRUE(file.open(QIODevice::ReadOnly));
  std::unique_ptr<QWidget> page(loader.load(&file));
  ASSERT_NE(page, nullptr) << loader.errorString().toStdString();
  // Loaded, not yet shown: the container takes its views once control is
  // back in the event loop.
  QCoreApplication::processEvents();
  expectFormTookEffect(page.get());
}

TEST(DesignerForms, UicCodeSetsTheViewsWhenTheContainerIsPolished) {
  QWidget page;
  Ui::FormPage form;
  form.setupUi(&page);
  // No event loop ran: the polish before the first show takes the views.
  form.accessoryContainer->ensurePolished();
  expectFormTookEffect(&page);
}

TEST(DesignerForms, ChildrenMadeTheWayFormsMakeThemAreTakenOnceTheEventLoopRuns) {
  // As generated code does: the children first, their frames afterwards.
  VTAccessoryContainerView container;
  container.resize(300, 100);
  auto* main = new QWidget(&container);
  auto* panel = new QWidget(&container);
  main->setGeometry(0, 0, 220, 100);
  panel->setGeometry(0, 0, 300, 0);
  panel->setGeometry(0, 100 - 80, 300, 80);
  main->setGeometry(0, 0, 300, 20);
  EXPECT_EQ(container.mainView(), nullptr);
  QCoreApplication::processEvents();
  EXPECT_EQ(container.mainView(), main);
  EXPECT_EQ(container.slideView(), panel);
  EXPECT_EQ(container.slideAlignment(), 4);
  EXPECT_FLOAT_EQ(container.slidedInSize(), 80.0f);
}

TEST(DesignerForms, ViewsSetInCodeAreNeverReplacedByTheChildren) {
  VTAccessoryContainerView container;
  container.resize(300, 100);
  auto* panel = new QWidget(&container);
  panel->setGeometry(200, 0, 100, 100);
  auto* main = new QWidget(&container);
  main->setGeometry(0, 0, 200, 100);
  container.setMainView(main);
  container.setSlideView(panel);
  QCoreApplication::processEvents();
  container.ensurePolished();
  EXPECT_EQ(container.mainView(), main);
  EXPECT_EQ(container.slideView(), panel);
  EXPECT_EQ(container.slideAlignment(), 2);

  // One child is not enough to take: nothing is set, nothing breaks.
  VTAccessoryContainerView lonely;
  new QWidget(&lonely);
  QCoreApplication::processEvents();
  lonely.ensurePolished();
  EXPECT_EQ(lonely.mainView(), nullptr);
  EXPECT_EQ(lonely.slideView(), nullptr);
  EXPECT_EQ(lonely.slideAlignment(), 0);
}

} // namespace
