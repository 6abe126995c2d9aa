#ifndef QUILLON_GRIDCOLOURS_H
#define QUILLON_GRIDCOLOURS_H

#include "quillon_export.h"

#include <QString>

/**
 * The colour properties a flexible grid offers, in the classic 0x00BBGGRR / system-colour form, and the style sheet
 * that paints a QTableView with them. Internal to the grids.
 */
struct QUILLON_EXPORT GridColours
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

/**
 * The colour properties of a grid widget, kept in a GridColours: the getters and setters behind the widget's
 * BackColor, ForeColor, ... properties. `Grid` is the widget deriving from this (after its QTableView base); it
 * declares the Q_PROPERTYs it offers with these members and calls applyColours() once it is built. Every setter
 * repaints the widget through its style sheet, or through its public paintColours() when it has one.
 */
template<class Grid>
class GridColourProperties
{
public:
    quint32 BackColor() const { return m_colours.back; }
    void setBackColor(quint32 color) { set(&GridColours::back, color); }
    quint32 ForeColor() const { return m_colours.fore; }
    void setForeColor(quint32 color) { set(&GridColours::fore, color); }
    quint32 BackColorFixed() const { return m_colours.backFixed; }
    void setBackColorFixed(quint32 color) { set(&GridColours::backFixed, color); }
    quint32 ForeColorFixed() const { return m_colours.foreFixed; }
    void setForeColorFixed(quint32 color) { set(&GridColours::foreFixed, color); }
    quint32 BackColorBkg() const { return m_colours.backBkg; }
    void setBackColorBkg(quint32 color) { set(&GridColours::backBkg, color); }
    quint32 BackColorSel() const { return m_colours.backSel; }
    void setBackColorSel(quint32 color) { set(&GridColours::backSel, color); }
    quint32 ForeColorSel() const { return m_colours.foreSel; }
    void setForeColorSel(quint32 color) { set(&GridColours::foreSel, color); }
    quint32 GridColor() const { return m_colours.grid; }
    void setGridColor(quint32 color) { set(&GridColours::grid, color); }
    quint32 GridColorFixed() const { return m_colours.gridFixed; }
    void setGridColorFixed(quint32 color) { set(&GridColours::gridFixed, color); }

protected:
    GridColourProperties() = default;
    ~GridColourProperties() = default;
    GridColourProperties(const GridColourProperties &) = delete;
    GridColourProperties &operator=(const GridColourProperties &) = delete;

    /// Paints the grid with the current colours: through the grid's own paintColours() where it has one.
    void applyColours()
    {
        if constexpr (requires(Grid & g) { g.paintColours(); }) {
            static_cast<Grid *>(this)->paintColours();
        } else {
            static_cast<Grid *>(this)->setStyleSheet(m_colours.styleSheet());
        }
    }
    const GridColours &colours() const { return m_colours; }

private:
    void set(quint32 GridColours::*colour, quint32 color)
    {
        m_colours.*colour = color;
        applyColours();
    }

    GridColours m_colours;
};

#endif
