#ifndef QUILLON_GRIDCOLOURS_H
#define QUILLON_GRIDCOLOURS_H

#include <QString>

/**
 * The colour properties a flexible grid offers, in the classic 0x00BBGGRR / system-colour form, and the style sheet
 * that paints a QTableView with them. Internal to the grids.
 */
struct GridColours
{
    quint32 back = 0x80000005;
    quint32 fore = 0x80000008;
    quint32 backFixed = 0x8000000F;
    quint32 foreFixed = 0x80000012;
    quint32 backBkg = 0x808080;
    quint32 backSel = 0x8000000D;
    quint32 foreSel = 0x8000000E;
    quint32 grid = 0xC0C0C0;
    quint32 gridFixed = 0;

    QString styleSheet() const;
};

#endif
