// Uses the installed headers the way a host does: open a database, load the master data, add an item.
#include <Quillon/cbus.h>
#include <Quillon/cconnection.h>
#include <Quillon/citem.h>
#include <Quillon/citems.h>
#include <Quillon/cspell.h>

#include <QCoreApplication>
#include <QTemporaryDir>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    QString error;
    const auto connection =
        CConnection::Open(QStringLiteral("sqlite:///") + dir.filePath(QStringLiteral("c.db")), &error);
    if (!connection) {
        std::fprintf(stderr, "open failed: %s\n", qPrintable(error));
        return 1;
    }
    connection->EnsureSchema();
    CBus bus;
    bus.InitAllData(connection);
    auto unit = std::make_shared<CItem>();
    unit->setF_ItemName(QStringLiteral("箱"));
    unit->setF_ItemTypeID(CBus::itUnit);
    if (!bus.mUnits()->SaveItem(unit)) {
        std::fprintf(stderr, "save failed\n");
        return 1;
    }
    const QString code = CSpell().GetPy(QStringLiteral("进销存"));
    std::printf("%s %lld\n", qPrintable(code), static_cast<long long>(bus.mUnits()->Count()));
    return code == QStringLiteral("jxc") && bus.mUnits()->Count() == 1 ? 0 : 1;
}
