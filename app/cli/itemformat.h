#ifndef QUILLON_ITEMFORMAT_H
#define QUILLON_ITEMFORMAT_H

#include "citem.h"

#include <QString>

class CItems;

namespace ItemFormat {

/// One JSON object per item, keyed by the T_Item column names plus mTypeName and mUnitName. Amounts are written as
/// exact decimal numbers; dates as "yyyy-MM-dd" (F_Date) or "yyyy-MM-ddTHH:mm:ss", a zero date as null.
QString json(const CItems &items);
/// A header line of the same names, then one tab-separated line per item (tabs and line breaks in texts as blanks).
QString tsv(const CItems &items);

} // namespace ItemFormat

#endif
