#include "goodspricebook.h"

#include "cconnection.h"
#include "citem.h"
#include "keyid.h"
#include "sqlvalue.h"

#include <QSqlQuery>

using namespace Qt::StringLiterals;

void GoodsPriceBook::load(CConnection &connection)
{
    QHash<quint64, Currency> byClient;
    QHash<quint64, Currency> byClientType;
    QSqlQuery q = connection.Select(u"Select F_GoodsID, F_ClientID, F_ClientTypeID, F_Price From T_GoodsPrice"_s);
    while (CConnection::next(q)) {
        const qint32 goods = SqlValue::toInt32(q.value(0)).value_or(0);
        const qint32 client = SqlValue::toInt32(q.value(1)).value_or(0);
        const qint32 type = SqlValue::toInt32(q.value(2)).value_or(0);
        const Currency price = SqlValue::toCurrency(q.value(3)).value_or(Currency());
        if (client > 0) {
            byClient.insert(key(goods, client), price);
        } else if (type > 0) {
            byClientType.insert(key(goods, type), price);
        }
    }
    m_byClient.swap(byClient);
    m_byClientType.swap(byClientType);
    m_loaded = true;
}

void GoodsPriceBook::reloadGoods(CConnection &connection, qint32 goodsID)
{
    QHash<quint64, Currency> byClient;
    QHash<quint64, Currency> byClientType;
    QSqlQuery q = connection.Select(
        u"Select F_ClientID, F_ClientTypeID, F_Price From T_GoodsPrice Where F_GoodsID=? Order By F_ID"_s, {goodsID});
    while (CConnection::next(q)) {
        const qint32 client = SqlValue::toInt32(q.value(0)).value_or(0);
        const qint32 type = SqlValue::toInt32(q.value(1)).value_or(0);
        const Currency price = SqlValue::toCurrency(q.value(2)).value_or(Currency());
        if (client > 0) {
            byClient.insert(key(goodsID, client), price);
        } else if (type > 0) {
            byClientType.insert(key(goodsID, type), price);
        }
    }
    // A walk over the whole book; prices change rarely.
    const auto ofGoods = [goodsID](quint64 k) {
        return qint32(quint32(k >> 32)) == goodsID;
    };
    m_byClient.removeIf([&](const auto &entry) { return ofGoods(entry.key()); });
    m_byClientType.removeIf([&](const auto &entry) { return ofGoods(entry.key()); });
    m_byClient.insert(byClient);
    m_byClientType.insert(byClientType);
}

std::optional<Currency> GoodsPriceBook::clientPrice(qint32 goodsID, qint32 clientID) const
{
    const auto it = m_byClient.constFind(key(goodsID, clientID));
    return it == m_byClient.constEnd() ? std::nullopt : std::optional<Currency>(*it);
}

std::optional<Currency> GoodsPriceBook::clientTypePrice(qint32 goodsID, qint32 clientTypeID) const
{
    const auto it = m_byClientType.constFind(key(goodsID, clientTypeID));
    return it == m_byClientType.constEnd() ? std::nullopt : std::optional<Currency>(*it);
}

Currency GoodsPriceBook::priceFor(const CItem &goods, const CItem *client) const
{
    if (client) {
        if (const auto own = clientPrice(goods.F_ID(), client->F_ID())) {
            return *own;
        }
        if (const auto byType = clientTypePrice(goods.F_ID(), client->F_ParentID())) {
            return *byType;
        }
    }
    return goods.F_PriceSale();
}

std::optional<Currency> GoodsPriceBook::read(CConnection &connection, qint32 goodsID, qint32 clientID,
                                             qint32 clientTypeID)
{
    QSqlQuery q = connection.Select(u"Select F_Price From T_GoodsPrice Where F_GoodsID=? And F_ClientID=? "
                                    "And F_ClientTypeID=? Order By F_ID"_s,
                                    {goodsID, clientID, clientTypeID});
    if (!CConnection::next(q)) {
        return std::nullopt;
    }
    return SqlValue::toCurrency(q.value(0)).value_or(Currency());
}

void GoodsPriceBook::write(CConnection &connection, qint32 goodsID, qint32 clientID, qint32 clientTypeID,
                           Currency price)
{
    CTransaction transaction(connection);
    qint32 existing = 0;
    {
        // Read to the end before the next statement: PostgreSQL streams results.
        QSqlQuery q = connection.Select(u"Select F_ID From T_GoodsPrice Where F_GoodsID=? And F_ClientID=? "
                                        "And F_ClientTypeID=? Order By F_ID"_s,
                                        {goodsID, clientID, clientTypeID});
        if (CConnection::next(q)) {
            existing = q.value(0).toInt();
        }
        while (CConnection::next(q)) { }
    }
    if (existing > 0) {
        connection.Execute(u"Update T_GoodsPrice Set F_Price=? Where F_ID=?"_s, {QVariant::fromValue(price), existing});
    } else {
        const qint32 id = Module1::GetNewID(connection, u"T_GoodsPrice"_s, true);
        connection.Execute(u"Insert Into T_GoodsPrice (F_ID, F_GoodsID, F_ClientID, F_ClientTypeID, F_Price) "
                           "Values (?, ?, ?, ?, ?)"_s,
                           {id, goodsID, clientID, clientTypeID, QVariant::fromValue(price)});
    }
    transaction.Commit();
}

void GoodsPriceBook::save(CConnection &connection, qint32 goodsID, qint32 clientID, qint32 clientTypeID, Currency price)
{
    write(connection, goodsID, clientID, clientTypeID, price);
    if (clientID > 0) {
        m_byClient.insert(key(goodsID, clientID), price);
    } else {
        m_byClientType.insert(key(goodsID, clientTypeID), price);
    }
}
