#ifndef QUILLON_CITEM_H
#define QUILLON_CITEM_H

#include "currency.h"
#include "quillon_export.h"

#include <QDateTime>
#include <QString>
#include <QVariant>

#include <bit>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

class CConnection;
class CRecordset;
struct CItemHook;

/**
 * One row of T_Item held in memory, of any item type, plus the working fields that pickers attach to a goods line.
 *
 * Plain storage: setters neither validate nor notify. It does no database work beyond copying to and from the
 * current row of a CRecordset.
 */
class QUILLON_EXPORT CItem
{
public:
    enum class ColumnType { Int32, Int16, Text, Single, Currency, Date, DateTime, Boolean };

    struct Column
    {
        QString name;
        ColumnType type;
        int slot;
        bool hasNullRule;
    };

    /// The columns of T_Item in the order in which an item is read and written.
    static std::span<const Column> columns();
    static std::span<const QString> columnNames();
    /// Position of a column in columns() (case-insensitive), or -1.
    static int columnIndex(const QString &name);
    /// The double a single-precision column is stored as: the float's shortest decimal form (0.1, not the
    /// 0.100000001490116 its bits widen to), so that an unchanged save stores what was read.
    static double storedSingle(float value);
    /// Dates are wall-clock values without a zone. They are held in Qt::UTC, where no time-zone rule applies (and
    /// none has to be looked up); this gives the same date and time in that form.
    static QDateTime wallClock(const QDateTime &value)
    {
        return !value.isValid() || value.timeSpec() == Qt::UTC ? value : QDateTime(value.date(), value.time(), Qt::UTC);
    }
    /// The zero date: a date at or before it counts as no date.
    static QDateTime zeroDate();
    static bool isLaterThanZeroDate(const QDateTime &date);

    CItem();
    /// A new, empty item, allocated where collections keep their items compactly.
    static std::shared_ptr<CItem> create();
    static std::shared_ptr<CItem> create(const CItem &copy);

    /// Copies the cursor's current row into the item (`fromRst` true) or the item into the cursor's edit buffer.
    /// A column that is missing or fails to convert ends the copy there; the columns before it keep their new
    /// values. Returns false in that case, with the reason in `error` when given. The columns a read did not reach
    /// are not written back unless they were given a value since, so a save never blanks what it did not read.
    bool UpdateDataFromRst(CRecordset &rst, bool fromRst, QString *error = nullptr);
    /// This goods' own price for a client (T_GoodsPrice), when it has one. Throws DbError.
    std::optional<Currency> GetPriceByClientID(CConnection &connection, qint32 clientID) const;
    /// Adds or replaces this goods' price for a client; false with `error` set when the database refuses.
    bool SavePriceByClient(CConnection &connection, qint32 clientID, Currency price, QString *error = nullptr) const;

    /// The first column the last read could not convert, or -1 when every column was read.
    int unreadFrom() const { return m.m_unreadFrom == kAllRead ? -1 : int(m.m_unreadFrom); }

    /// Hints for a scan over very many items, which would otherwise wait on memory for every item: stage 0
    /// fetches the item's own text record, stage 1 the array of its texts (after stage 0 landed), stage 2 the
    /// characters of the number, name and mnemonic code (after stage 1 landed). No effect on any value.
    void prefetch(int stage) const
    {
        switch (stage) {
        case 0:
            __builtin_prefetch(&m.m_texts);
            break;
        case 1:
            m.m_texts.prefetchArray();
            break;
        default:
            for (int slot : {0, 1, 3}) {
                __builtin_prefetch(m.m_texts.get(slot).constData());
            }
            break;
        }
    }
    /// A 64-bit fingerprint of the stored columns as the last read from the database found them (0 when the item
    /// was never read): a save compares it with the row it is about to overwrite. Edits leave it; copies carry it.
    quint64 rowHash() const { return m.m_rowHash; }
    void setRowHash(quint64 hash) { m.m_rowHash = hash; }
    /// The fingerprint of the columns' current values (never 0). Meaningful within one process only.
    quint64 columnHash() const;

    /// A column's value as the item holds it (qint32, qint16, QString, float, Currency, QDateTime or bool).
    QVariant value(int column) const;
    /// Converts and stores a value into a column; NULL follows the column's NULL rule. Returns false, leaving the
    /// item unchanged, when the value does not convert.
    bool setValue(int column, const QVariant &value, QString *error = nullptr);

    qint32 F_ID() const { return m.m_int[0]; }
    void setF_ID(qint32 value);
    const QString &F_ItemNo() const { return m.m_texts.get(0); }
    void setF_ItemNo(const QString &value);
    const QString &F_ItemName() const { return m.m_texts.get(1); }
    void setF_ItemName(const QString &value);
    qint16 F_ItemTypeID() const { return m.m_int16; }
    void setF_ItemTypeID(qint16 value) { m.m_int16 = value; }
    const QString &F_Standard() const { return m.m_texts.get(2); }
    void setF_Standard(const QString &value) { m.m_texts.set(2, value); }
    const QString &F_Spell() const { return m.m_texts.get(3); }
    void setF_Spell(const QString &value);
    qint32 F_ParentID() const { return m.m_int[1]; }
    void setF_ParentID(qint32 value) { m.m_int[1] = value; }
    const QString &F_Remark() const { return m.m_texts.get(4); }
    void setF_Remark(const QString &value) { m.m_texts.set(4, value); }
    float F_LimitUp() const { return m.m_single[0]; }
    void setF_LimitUp(float value) { m.m_single[0] = value; }
    float F_LimitDown() const { return m.m_single[1]; }
    void setF_LimitDown(float value) { m.m_single[1] = value; }
    const QString &F_Address() const { return m.m_texts.get(5); }
    void setF_Address(const QString &value) { m.m_texts.set(5, value); }
    const QString &F_Tel1() const { return m.m_texts.get(6); }
    void setF_Tel1(const QString &value) { m.m_texts.set(6, value); }
    const QString &F_Tel2() const { return m.m_texts.get(7); }
    void setF_Tel2(const QString &value) { m.m_texts.set(7, value); }
    const QString &F_Tel3() const { return m.m_texts.get(8); }
    void setF_Tel3(const QString &value) { m.m_texts.set(8, value); }
    const QString &F_LinkMen() const { return m.m_texts.get(9); }
    void setF_LinkMen(const QString &value) { m.m_texts.set(9, value); }
    const QString &F_PostCode() const { return m.m_texts.get(10); }
    void setF_PostCode(const QString &value) { m.m_texts.set(10, value); }
    qint32 F_Tag1() const { return m.m_int[2]; }
    void setF_Tag1(qint32 value);
    qint32 F_Tag2() const { return m.m_int[3]; }
    void setF_Tag2(qint32 value);
    qint32 F_Tag3() const { return m.m_int[4]; }
    void setF_Tag3(qint32 value);
    Currency F_OweWarring() const { return m.m_currency[0]; }
    void setF_OweWarring(Currency value) { m.m_currency[0] = value; }
    Currency F_OweStop() const { return m.m_currency[1]; }
    void setF_OweStop(Currency value) { m.m_currency[1] = value; }
    const QString &F_Bank() const { return m.m_texts.get(11); }
    void setF_Bank(const QString &value) { m.m_texts.set(11, value); }
    const QString &F_BankAccount() const { return m.m_texts.get(12); }
    void setF_BankAccount(const QString &value) { m.m_texts.set(12, value); }
    qint32 F_OrderByID() const { return m.m_int[5]; }
    void setF_OrderByID(qint32 value);
    const QDateTime &F_Date() const { return m.m_date[0]; }
    void setF_Date(const QDateTime &value) { m.m_date[0] = wallClock(value); }
    bool F_IsSpecial() const { return m.m_bool; }
    void setF_IsSpecial(bool value) { m.m_bool = value; }
    const QString &F_ArtificialPerson() const { return m.m_texts.get(13); }
    void setF_ArtificialPerson(const QString &value) { m.m_texts.set(13, value); }
    const QString &F_IRDNumber() const { return m.m_texts.get(14); }
    void setF_IRDNumber(const QString &value) { m.m_texts.set(14, value); }
    Currency F_PriceEnterPack() const { return m.m_currency[2]; }
    void setF_PriceEnterPack(Currency value) { m.m_currency[2] = value; }
    Currency F_PriceEnter() const { return m.m_currency[3]; }
    void setF_PriceEnter(Currency value) { m.m_currency[3] = value; }
    Currency F_PriceSalePack() const { return m.m_currency[4]; }
    void setF_PriceSalePack(Currency value) { m.m_currency[4] = value; }
    Currency F_PriceSale() const { return m.m_currency[5]; }
    void setF_PriceSale(Currency value) { m.m_currency[5] = value; }
    float F_PackageAmount() const { return m.m_single[2]; }
    void setF_PackageAmount(float value) { m.m_single[2] = value; }
    const QDateTime &F_Time1() const { return m.m_date[1]; }
    void setF_Time1(const QDateTime &value) { m.m_date[1] = wallClock(value); }
    const QDateTime &F_Time2() const { return m.m_date[2]; }
    void setF_Time2(const QDateTime &value) { m.m_date[2] = wallClock(value); }
    qint32 F_Tag4() const { return m.m_int[6]; }
    void setF_Tag4(qint32 value) { m.m_int[6] = value; }
    qint32 F_Tag5() const { return m.m_int[7]; }
    void setF_Tag5(qint32 value) { m.m_int[7] = value; }
    qint32 F_Tag6() const { return m.m_int[8]; }
    void setF_Tag6(qint32 value) { m.m_int[8] = value; }

    // Working fields of a goods line; never stored in T_Item.
    Currency Price() const { return m.m_price; }
    void setPrice(Currency value) { m.m_price = value; }
    Currency Amount() const { return m.m_amount; }
    void setAmount(Currency value) { m.m_amount = value; }
    Currency Money() const { return m.m_money; }
    void setMoney(Currency value) { m.m_money = value; }
    bool PriceChangeFlag() const { return m.m_priceChangeFlag; }
    void setPriceChangeFlag(bool value) { m.m_priceChangeFlag = value; }
    const QString &mWorkerID() const { return m.m_texts.get(15); }
    void setmWorkerID(const QString &value) { m.m_texts.set(15, value); }
    const QString &mTypeName() const { return m.m_texts.get(16); }
    void setmTypeName(const QString &value) { m.m_texts.set(16, value); }
    const QString &mUnitName() const { return m.m_texts.get(17); }
    void setmUnitName(const QString &value) { m.m_texts.set(17, value); }

    /// A row as a bulk reader of the library hands it over; defined where those readers are.
    struct RowSource;

    CItem(const CItem &other);
    /// Assigning into an item that a collection holds keeps the collection's look-ups in step.
    CItem &operator=(const CItem &other);
    ~CItem();

private:
    friend class CItemWatcher;
    friend class ItemLoader;
    static constexpr quint8 kAllRead = 0xFF;

    bool assign(int column, const QVariant &value, QString *error);
    bool writeRow(CRecordset &rst, QString *error);
    // Reads a whole row as UpdateDataFromRst(rst, true) does, fingerprint included.
    bool readRow(RowSource &source, QString *error);
    template<typename Cell>
    bool assignCell(const Column &column, const Cell &cell);
    void keyAboutToChange(int column);
    void keyChanged(int column);

    // The item's texts (the 15 text columns, then mWorkerID, mTypeName, mUnitName), storing only the non-empty
    // ones: most items fill a handful, and a million items would otherwise carry 400 bytes of empty strings each.
    class QUILLON_EXPORT TextSlots
    {
    public:
        TextSlots() = default;
        TextSlots(const TextSlots &other);
        TextSlots &operator=(const TextSlots &other);
        ~TextSlots();

        const QString &get(int slot) const
        {
            if (!(m_mask & (1u << slot))) {
                return emptyText();
            }
            return m_data[std::popcount(m_mask & ((1u << slot) - 1))];
        }
        void set(int slot, const QString &value);
        void prefetchArray() const { __builtin_prefetch(m_data); }
        /// Sets every slot of `mask` at once from `values` (indexed by slot), taking the strings.
        void setMany(std::uint32_t mask, QString *values);

    private:
        static const QString &emptyText();
        void rebuild(std::uint32_t mask, QString *value, int added);

        std::uint32_t m_mask = 0;
        QString *m_data = nullptr;
    };

    struct Fields
    {
        qint32 m_int[9] = {};
        qint16 m_int16 = 0;
        bool m_bool = false;
        bool m_priceChangeFlag = false;
        // The first column a read could not convert (the columns from it on were not read), or kAllRead.
        quint8 m_unreadFrom = kAllRead;
        float m_single[3] = {};
        quint64 m_rowHash = 0;
        TextSlots m_texts;
        Currency m_currency[6];
        QDateTime m_date[3];
        Currency m_price;
        Currency m_amount;
        Currency m_money;
    } m;

    // The collections that hold this item, so that their look-ups and text search follow changes of the fields they
    // use (number, name, mnemonic code, id, tags, order number).
    struct Hooks
    {
        CItemHook *head = nullptr;
    } m_hooks;
};

using CItemPtr = std::shared_ptr<CItem>;
Q_DECLARE_METATYPE(CItemPtr)

#endif
