#include "watchcommand.h"

#include "clicommands.h"

#include "cconnection.h"
#include "changefeed.h"

#include <QCoreApplication>
#include <QTextStream>

using namespace Qt::StringLiterals;

namespace Cli {

int watchChanges(const std::shared_ptr<CConnection> &connection, const QSet<int> &kinds, QTextStream &out,
                 QTextStream &err)
{
    ChangeFeed feed(connection);
    QString error;
    if (!feed.start(&error)) {
        err << error << u'\n';
        return Failed;
    }
    const auto print = [&](const QString &kind, int itemType, qint32 id) {
        out << kind << u'\t' << itemType << u'\t' << id << u'\n';
        out.flush();
    };
    QObject::connect(&feed, &ChangeFeed::changed, [&](const QList<ItemChange> &changes) {
        for (const ItemChange &change : changes) {
            const bool everyKind = change.kind == ItemChange::Reload && change.itemType == 0;
            if (kinds.isEmpty() || everyKind || kinds.contains(change.itemType)) {
                print(change.kindName(), change.itemType, change.id);
            }
        }
    });
    // Changes were lost to pruning (or came in bulk): whoever follows must read everything again.
    QObject::connect(&feed, &ChangeFeed::reloadNeeded, [&] { print(u"reload"_s, 0, 0); });
    QObject::connect(&feed, &ChangeFeed::connectionLost, [&](const QString &message) {
        err << u"与数据库的连接已断开,正在重试: "_s << message << u'\n';
        err.flush();
    });
    QObject::connect(&feed, &ChangeFeed::restored, [&] {
        err << u"已重新连接数据库\n"_s;
        err.flush();
    });
    err << u"正在监视 "_s << DatabaseUrl::masked(connection->url()) << u" 的修改 (Ctrl+C 结束)\n"_s;
    err.flush();
    return QCoreApplication::exec() == 0 ? Ok : Failed;
}

} // namespace Cli
