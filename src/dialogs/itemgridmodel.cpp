#include "itemgridmodel.h"

#include "cspell.h"

#include <QBrush>
#include <QColor>

ItemGridModel::ItemGridModel(CItems *items, const QList<Field> &fields, QObject *parent)
    : ItemTableModel(items, fields, parent)
{
    setSpellMaker([](const QString &name) { return CSpell::py(name); });
}

QVariant ItemGridModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) {
        return QVariant();
    }
    switch (role) {
    case Qt::ForegroundRole:
        return isFieldEditable(field(index.column())) ? QVariant() : QBrush(QColor(0x55, 0x55, 0x55));
    case Qt::BackgroundRole:
        return isPendingRow(index.row()) ? QBrush(QColor(0xFF, 0xF8, 0xDC)) : QVariant();
    default:
        return ItemTableModel::data(index, role);
    }
}
