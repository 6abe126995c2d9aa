#ifndef QUILLON_OLECOLOR_H
#define QUILLON_OLECOLOR_H

#include "quillon_export.h"

#include <QColor>

/**
 * Colours in the classic 32-bit form the grid properties use: 0x00BBGGRR, or with the top bit set an index into
 * the system colours (0x80000018 is the tooltip background), mapped onto the application's palette.
 */
namespace OleColor {

QUILLON_EXPORT QColor toColor(quint32 value);
/// The 0x00BBGGRR form of a colour.
QUILLON_EXPORT quint32 fromColor(const QColor &color);

} // namespace OleColor

#endif
