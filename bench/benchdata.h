#ifndef QUILLON_BENCHDATA_H
#define QUILLON_BENCHDATA_H

// Generated master data for the benchmark programs.

#include "benchsupport.h"

#include <QString>
#include <QTemporaryDir>

#include <memory>

class CConnection;

namespace BenchData {

/// Writes N items: 90% goods, 5% clients, the rest over the other kinds. Returns the number written.
qint64 generate(CConnection &db, qint64 total);
qint64 countItems(CConnection &db);
/// Makes `db` hold N generated items: with `reuse`, a database that an earlier run filled with N items is kept
/// (it may have lost the few hundred goods that runs delete); otherwise the master tables are made anew. Returns
/// the seconds spent generating (0 when reused).
double prepare(CConnection &db, qint64 total, bool reuse);

/**
 * The generated store a benchmark runs on, as its command line names it: --items N (a million unless given),
 * --db URL (an SQLite file in a temporary folder unless given) and --reuse (see prepare()).
 */
class Store
{
public:
    qint64 total = 1000000;
    QString url;
    bool reuse = false;

    /// The command line with the store's options; the program adds its own.
    BenchSupport::Options options(const char *usage);
    /// Opens the database and prints which; then prepares it, printing how long generating took. Null, with the
    /// reason printed, when it does not open.
    std::shared_ptr<CConnection> open();

private:
    QTemporaryDir m_scratch;
};

} // namespace BenchData

#endif
