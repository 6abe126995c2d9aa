#include "olecolor.h"

#include <QGuiApplication>
#include <QPalette>

namespace OleColor {

namespace {

QPalette::ColorRole systemRole(quint32 index)
{
    switch (index) {
    case 5: // window background
        return QPalette::Base;
    case 6: // window frame
        return QPalette::Dark;
    case 8: // window text
        return QPalette::Text;
    case 12: // application workspace
        return QPalette::Mid;
    case 13: // highlight
        return QPalette::Highlight;
    case 14: // highlight text
        return QPalette::HighlightedText;
    case 15: // button face
        return QPalette::Button;
    case 16: // button shadow
        return QPalette::Dark;
    case 17: // grey text
        return QPalette::PlaceholderText;
    case 18: // button text
        return QPalette::ButtonText;
    case 20: // button highlight
        return QPalette::Light;
    case 23: // tooltip text
        return QPalette::ToolTipText;
    case 24: // tooltip background
        return QPalette::ToolTipBase;
    default:
        return QPalette::Window;
    }
}

} // namespace

QColor toColor(quint32 value)
{
    if (value & 0x80000000u) {
        const QPalette palette =
            qobject_cast<QGuiApplication *>(QCoreApplication::instance()) ? QGuiApplication::palette() : QPalette();
        return palette.color(systemRole(value & 0xFFu));
    }
    return QColor(int(value & 0xFFu), int((value >> 8) & 0xFFu), int((value >> 16) & 0xFFu));
}

quint32 fromColor(const QColor &color)
{
    return quint32(color.red()) | (quint32(color.green()) << 8) | (quint32(color.blue()) << 16);
}

} // namespace OleColor
