#ifndef QUILLON_ITEMGRIDMODEL_H
#define QUILLON_ITEMGRIDMODEL_H

#include "itemtablemodel.h"
#include "quillon_export.h"

/**
 * The item table as the windows show it: read-only columns in grey, rows waiting to be saved on a light yellow
 * ground. Only colours; everything else is ItemTableModel's.
 */
class QUILLON_EXPORT ItemGridModel : public ItemTableModel
{
    Q_OBJECT

public:
    explicit ItemGridModel(CItems *items, const QList<Field> &fields, QObject *parent = nullptr);

    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
};

#endif
