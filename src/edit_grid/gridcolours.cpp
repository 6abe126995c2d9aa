#include "gridcolours.h"

#include "olecolor.h"

using namespace Qt::StringLiterals;

QString GridColours::styleSheet() const
{
    auto css = [](quint32 color) {
        return OleColor::toColor(color).name();
    };
    return u"QTableView { background-color: %1; color: %2; gridline-color: %3; "
           "selection-background-color: %4; selection-color: %5; }"
           "QHeaderView::section, QTableCornerButton::section { background-color: %6; color: %7; "
           "border: 0px; border-right: 1px solid %8; border-bottom: 1px solid %8; padding: 1px 3px; }"_s.arg(
               css(back), css(fore), css(grid), css(backSel), css(foreSel), css(backFixed), css(foreFixed),
               css(gridFixed));
}
