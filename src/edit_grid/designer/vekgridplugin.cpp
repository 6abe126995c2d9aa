#include "vekgridplugin.h"

#include "vekgrid.h"

#include <QIcon>
#include <QVariantMap>

using namespace Qt::StringLiterals;

VekGridPlugin::VekGridPlugin(QObject *parent)
    : QObject(parent)
{ }

QString VekGridPlugin::name() const
{
    return u"VekGrid"_s;
}

QString VekGridPlugin::group() const
{
    return u"Quillon"_s;
}

QString VekGridPlugin::toolTip() const
{
    return u"可编辑表格"_s;
}

QString VekGridPlugin::whatsThis() const
{
    return u"可在单元格内直接编辑的表格控件"_s;
}

QString VekGridPlugin::includeFile() const
{
    return u"vekgrid.h"_s;
}

QIcon VekGridPlugin::icon() const
{
    return QIcon::fromTheme(u"x-office-spreadsheet"_s);
}

bool VekGridPlugin::isContainer() const
{
    return false;
}

QWidget *VekGridPlugin::createWidget(QWidget *parent)
{
    auto *grid = new VekGrid(parent);
    // A control from a form starts as one restored from an empty property bag; the form then sets what differs.
    // Designer compares against this same state, so it stores exactly the properties the user changed.
    grid->ReadProperties(QVariantMap());
    if (m_core) {
        grid->InitProperties();
        grid->setDesignMode(true);
    }
    return grid;
}

bool VekGridPlugin::isInitialized() const
{
    return m_core != nullptr;
}

void VekGridPlugin::initialize(QDesignerFormEditorInterface *core)
{
    // Only Designer calls this; QUiLoader creates widgets without it.
    m_core = core;
}

QString VekGridPlugin::domXml() const
{
    return uR"(<ui language="c++">
 <widget class="VekGrid" name="VekGrid1">
  <property name="geometry">
   <rect><x>0</x><y>0</y><width>320</width><height>200</height></rect>
  </property>
 </widget>
</ui>
)"_s;
}
