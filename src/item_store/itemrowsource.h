#ifndef QUILLON_ITEMROWSOURCE_H
#define QUILLON_ITEMROWSOURCE_H

// The row a bulk reader hands to CItem: a cursor of Qt's drivers or an engine's own interface. Internal to the
// library.

#include "citem.h"

#include <QString>
#include <QStringView>
#include <QVariant>

struct CItem::RowSource
{
    /// A column's value in a form that needs no QVariant, for the commonest stored kinds; Other sends the column
    /// through value(). Each kind converts as the driver's value of it would: Null as NULL, Integer as a qint64,
    /// Real as a double, Ascii as a QString of those characters.
    struct Cell
    {
        enum Kind { Other, Null, Integer, Real, Ascii } kind = Other;
        qint64 integer = 0;
        double real = 0;
        QStringView ascii;
    };
    static constexpr qsizetype kAsciiCapacity = 64;

    virtual ~RowSource() = default;
    /// The column's Cell; an Ascii cell's characters may be put into `buffer`.
    virtual Cell cell(int column, char16_t (&buffer)[kAsciiCapacity])
    {
        Q_UNUSED(column);
        Q_UNUSED(buffer);
        return {};
    }
    /// Whether the row has the item's column `column` (a position in CItem::columns()).
    virtual bool has(int column) const = 0;
    /// A text column's value as the item keeps it: what toString() of the driver's value gives, NULL as "".
    virtual QString text(int column) = 0;
    /// Any column's value in the form Qt's driver for the engine gives it, so that every conversion and its
    /// failure read the same whichever reader delivered the row.
    virtual QVariant value(int column) = 0;
};

#endif
