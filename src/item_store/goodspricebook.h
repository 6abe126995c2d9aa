#ifndef QUILLON_GOODSPRICEBOOK_H
#define QUILLON_GOODSPRICEBOOK_H

#include "currency.h"
#include "quillon_export.h"

#include <QHash>

#include <optional>

class CConnection;
class CItem;

/**
 * The prices of T_GoodsPrice: per goods and client, and per goods and client type. Prices are read once into
 * memory so that a price look-up costs a hash probe; saving writes the row (added or replaced, keyed from
 * T_KeyID "T_GoodsPrice") and the memory together. Not thread-safe; changes made by other programs are seen after
 * load().
 */
class QUILLON_EXPORT GoodsPriceBook
{
public:
    GoodsPriceBook() = default;

    /// Reads every price of the database. Throws DbError.
    void load(CConnection &connection);
    bool isLoaded() const { return m_loaded; }
    /// Reads the prices of one goods again (after another seat changed them). Throws DbError.
    void reloadGoods(CConnection &connection, qint32 goodsID);

    std::optional<Currency> clientPrice(qint32 goodsID, qint32 clientID) const;
    std::optional<Currency> clientTypePrice(qint32 goodsID, qint32 clientTypeID) const;
    /// The price a client pays: its own price, else its client type's (the client's F_ParentID), else the goods'
    /// single-piece sale price.
    Currency priceFor(const CItem &goods, const CItem *client) const;

    /// Adds or replaces the row of a goods and client (or, with clientID 0, of a goods and client type) in one
    /// transaction. Throws DbError; memory changes only when the database did.
    void save(CConnection &connection, qint32 goodsID, qint32 clientID, qint32 clientTypeID, Currency price);

    /// The row of a goods and client (clientTypeID 0) or goods and client type (clientID 0), read from the database.
    static std::optional<Currency> read(CConnection &connection, qint32 goodsID, qint32 clientID, qint32 clientTypeID);
    /// Adds or replaces one row. Throws DbError.
    static void write(CConnection &connection, qint32 goodsID, qint32 clientID, qint32 clientTypeID, Currency price);

private:
    static quint64 key(qint32 goodsID, qint32 other) { return (quint64(quint32(goodsID)) << 32) | quint32(other); }

    QHash<quint64, Currency> m_byClient;
    QHash<quint64, Currency> m_byClientType;
    bool m_loaded = false;
};

#endif
