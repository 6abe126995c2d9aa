#ifndef QUILLON_CHANGEFEED_H
#define QUILLON_CHANGEFEED_H

#include "changelog.h"
#include "quillon_export.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>

#include <memory>

class CConnection;

/**
 * Follows the change table of one database for a seat: on SQLite it notices another connection's commit by
 * PRAGMA data_version on a short timer, on PostgreSQL by the NOTIFY of the change triggers (with the same timer
 * as a safety net for a notice the driver did not pass on, and to find a connection the server dropped). Then it
 * reads the change table from its last position and hands the changes on, oldest first.
 *
 * When the rows after its position were pruned, the table holds rubbish, too much arrived at once, or the
 * connection came back after a loss, it asks for a reload instead: no change is lost, at worst one is applied by
 * reloading. Runs on the thread of its connection; does nothing while that connection is inside a transaction.
 */
class QUILLON_EXPORT ChangeFeed : public QObject
{
    Q_OBJECT

public:
    /// More changes than this at once are answered with a reload.
    static constexpr int kBatchLimit = 500;

    explicit ChangeFeed(const std::shared_ptr<CConnection> &connection, QObject *parent = nullptr);
    ~ChangeFeed() override;
    Q_DISABLE_COPY_MOVE(ChangeFeed)

    /// Creates the change table where missing (unless the database is read-only), takes the newest change as
    /// the position and starts watching. False, with `error` set, when the database has no change table.
    bool start(QString *error = nullptr);
    void stop();
    bool isActive() const { return m_active; }
    std::shared_ptr<CConnection> connection() const { return m_connection; }
    /// The sequence number of the last change handed on (or of the newest change at start).
    qint64 position() const { return m_position; }
    /// How often the timer looks (milliseconds); 100 unless set.
    void setInterval(int milliseconds);

    /// Reads what arrived since the last look, now.
    void poll();

Q_SIGNALS:
    void changed(const QList<ItemChange> &changes);
    /// The seat cannot tell exactly what changed: it must reload its lists.
    void reloadNeeded();
    /// The database cannot be reached; the feed keeps trying and raises restored() when it works again.
    void connectionLost(const QString &message);
    void restored();

private:
    void tick();
    bool sqliteChanged();
    bool postgresNotified();
    bool reconnect();
    void listen();
    void read();

    std::shared_ptr<CConnection> m_connection;
    QTimer m_timer;
    QElapsedTimer m_sincePrune;
    QElapsedTimer m_sinceRetry;
    qint64 m_position = 0;
    qint64 m_dataVersion = -1;
    quint64 m_commits = 0; // the connection's commit count at the last look
    bool m_active = false;
    bool m_busy = false;
    bool m_lost = false;
    bool m_pending = false;
};

#endif
