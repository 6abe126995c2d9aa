#ifndef QUILLON_BENCHDATA_H
#define QUILLON_BENCHDATA_H

// Generated master data for the benchmark programs.

#include <QtGlobal>

class CConnection;

namespace BenchData {

/// Writes N items: 90% goods, 5% clients, the rest over the other kinds. Returns the number written.
qint64 generate(CConnection &db, qint64 total);
qint64 countItems(CConnection &db);

} // namespace BenchData

#endif
