#ifndef QUILLON_BENCHDATA_H
#define QUILLON_BENCHDATA_H

// Generated master data for the benchmark programs.

#include <QtGlobal>

class CConnection;

namespace BenchData {

/// Writes N items: 90% goods, 5% clients, the rest over the other kinds. Returns the number written.
qint64 generate(CConnection &db, qint64 total);
qint64 countItems(CConnection &db);
/// Makes `db` hold N generated items: with `reuse`, a database that an earlier run filled with N items is kept
/// (it may have lost the few hundred goods that runs delete); otherwise the master tables are made anew. Returns
/// the seconds spent generating (0 when reused).
double prepare(CConnection &db, qint64 total, bool reuse);

} // namespace BenchData

#endif
