#include "vekgrid.h"

#include <QBuffer>
#include <QPluginLoader>
#include <QTest>
#include <QUiLoader>
#include <QtDesigner/QDesignerFormEditorInterface>
#include <QtUiPlugin/QDesignerCustomWidgetInterface>

using namespace Qt::StringLiterals;

// A form as Designer saves it: only the properties the user changed are written.
static const char formWithGrid[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<ui version="4.0">
 <class>Form</class>
 <widget class="QWidget" name="Form">
  <property name="geometry"><rect><x>0</x><y>0</y><width>400</width><height>300</height></rect></property>
  <widget class="VekGrid" name="vekGoods">
   <property name="geometry"><rect><x>10</x><y>10</y><width>380</width><height>280</height></rect></property>
   <property name="FormatString"><string>&lt;编号|^名称|&gt;单价</string></property>
   <property name="Rows"><number>6</number></property>
   <property name="EditCol"><string>1,2</string></property>
   <property name="KeepLastRows"><number>0</number></property>
   <property name="PopMenu"><bool>true</bool></property>
   <property name="SetupFile"><string>Goods.ini</string></property>
   <property name="BackColor"><UInt>16777215</UInt></property>
   <property name="ScrollBars"><number>2</number></property>
  </widget>
 </widget>
 <customwidgets>
  <customwidget><class>VekGrid</class><extends>QWidget</extends><header>vekgrid.h</header></customwidget>
 </customwidgets>
</ui>
)";

class DesignerPluginTest : public QObject
{
    Q_OBJECT

private:
    static QUiLoader *newLoader(QObject *parent)
    {
        auto *loader = new QUiLoader(parent);
        loader->clearPluginPaths();
        loader->addPluginPath(QStringLiteral(QUILLON_DESIGNER_PLUGIN_DIR));
        return loader;
    }

    static QDesignerCustomWidgetInterface *plugin(QPluginLoader &pluginLoader)
    {
        pluginLoader.setFileName(QStringLiteral(QUILLON_DESIGNER_PLUGIN_FILE));
        return qobject_cast<QDesignerCustomWidgetInterface *>(pluginLoader.instance());
    }

private Q_SLOTS:
    void loaderOffersTheGrid()
    {
        QUiLoader *loader = newLoader(this);
        QVERIFY2(loader->availableWidgets().contains(u"VekGrid"_s), qPrintable(loader->errorString()));
    }

    void formRestoresChangedPropertiesAndBagDefaults()
    {
        QUiLoader *loader = newLoader(this);
        QByteArray bytes(formWithGrid);
        QBuffer buffer(&bytes);
        std::unique_ptr<QWidget> form(loader->load(&buffer));
        QVERIFY2(form, qPrintable(loader->errorString()));
        auto *grid = form->findChild<VekGrid *>(u"vekGoods"_s);
        QVERIFY(grid);

        QCOMPARE(grid->Rows(), 6);
        QCOMPARE(grid->Cols(), 3);
        QCOMPARE(grid->TextMatrix(0, 1), u"名称"_s);
        QCOMPARE(grid->EditCol(), u"1,2"_s);
        QCOMPARE(grid->KeepLastRows(), qint16(0));
        QVERIFY(grid->PopMenu());
        QCOMPARE(grid->SetupFile(), u"Goods.ini"_s);
        QCOMPARE(grid->BackColor(), 0xFFFFFFu);
        QCOMPARE(grid->ScrollBars(), 2);

        // What the form leaves out has the property bag's defaults, as for a control restored by its host.
        QCOMPARE(grid->FixedRows(), 1);
        QVERIFY(grid->AutoEditNextCell());
        QCOMPARE(grid->ForeColor(), 0x80000008u);
        QVERIFY(!grid->IsDemo());

        // A running program is not in design mode.
        QVERIFY(!grid->designMode());
        QVERIFY(grid->setRow(2));
        QCOMPARE(grid->Row(), 2);
    }

    void formWithoutSetupFileGetsZero()
    {
        // The ini name a placed control carries until the host sets one.
        QUiLoader *loader = newLoader(this);
        std::unique_ptr<QWidget> grid(loader->createWidget(u"VekGrid"_s));
        QVERIFY(grid);
        QCOMPARE(grid->property("SetupFile").toString(), u"0"_s);
        QCOMPARE(grid->property("KeepLastRows").toInt(), 1);
    }

    void designerGridsRefuseGuardedAssignments()
    {
        QPluginLoader pluginLoader;
        QDesignerCustomWidgetInterface *iface = plugin(pluginLoader);
        QVERIFY2(iface, qPrintable(pluginLoader.errorString()));
        QCOMPARE(iface->name(), u"VekGrid"_s);
        QCOMPARE(iface->includeFile(), u"vekgrid.h"_s);
        QVERIFY(iface->domXml().contains(u"class=\"VekGrid\""_s));

        QDesignerFormEditorInterface core;
        iface->initialize(&core);
        QVERIFY(iface->isInitialized());
        std::unique_ptr<QWidget> widget(iface->createWidget(nullptr));
        auto *grid = qobject_cast<VekGrid *>(widget.get());
        QVERIFY(grid);
        QVERIFY(grid->designMode());
        QCOMPARE(grid->SetupFile(), u"0"_s);
        QVERIFY(!grid->setSetupFile(u"x.ini"_s));
        QCOMPARE(grid->lastError(), VekGrid::kErrSetNotPermitted);
        QCOMPARE(grid->SetupFile(), u"0"_s);
        QVERIFY(!grid->setRow(1));
        QVERIFY(!grid->setClip(u"a"_s));
        // Through the meta-object system, as Designer's property sheet assigns.
        QVERIFY(grid->setProperty("EditCol", u"2"_s));
        QCOMPARE(grid->EditCol(), u"2"_s);
        iface->initialize(nullptr);
    }
};

QTEST_MAIN(DesignerPluginTest)
#include "tst_designerplugin.moc"
