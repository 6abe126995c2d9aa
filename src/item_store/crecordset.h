#ifndef QUILLON_CRECORDSET_H
#define QUILLON_CRECORDSET_H

#include "quillon_export.h"

#include <QHash>
#include <QList>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QString>
#include <QVariant>

#include <memory>
#include <optional>
#include <span>

class CConnection;

/**
 * The columns of a statement's rows: names in order, a case-insensitive name look-up, and the positions of a fixed
 * list of names, worked out once per statement text and shared by every cursor over it.
 */
class QUILLON_EXPORT ColumnLayout
{
public:
    explicit ColumnLayout(const QSqlRecord &record);

    qsizetype count() const { return m_names.size(); }
    const QString &name(qsizetype index) const { return m_names.at(index); }
    /// Position of a column (case-insensitive), or -1.
    int indexOf(const QString &name) const { return m_index.value(name.toLower(), -1); }
    /// Positions of `names` (-1 for a missing one), computed on first use per list.
    const QList<int> &indexesOf(std::span<const QString> names) const;

private:
    QList<QString> m_names;
    QHash<QString, int> m_index;
    mutable QHash<const QString *, QList<int>> m_lists;
};

/**
 * A forward-only cursor over a query's rows, with an edit buffer for adding or changing one row of a table.
 *
 * Reading walks the rows of any statement. Editing needs OpenTable(), which names the table and its key column;
 * Update() then writes the changed columns with bound parameters. There is no scrolling back and no batch update.
 */
class QUILLON_EXPORT CRecordset
{
public:
    explicit CRecordset(CConnection &connection);
    ~CRecordset();
    Q_DISABLE_COPY_MOVE(CRecordset)

    /// Runs a statement and positions on its first row. Throws DbError.
    void Open(const QString &sql, const QVariantList &params = {});
    enum Lock { NoLock, ForUpdate };
    /// Opens the rows of `table` whose `keyColumn` equals `key`, ready for AddNew() or for changing the current row.
    /// ForUpdate locks the rows to the end of the transaction on PostgreSQL (SQLite's writer holds the whole file).
    void OpenTable(const QString &table, const QString &keyColumn, const QVariant &key, Lock lock = NoLock);
    /// Makes the recordset ready for AddNew() on `table` without reading anything.
    void OpenForInsert(const QString &table, const QString &keyColumn);
    void Close();

    bool isOpen() const { return m_open; }
    bool isEOF() const { return m_eof; }
    void MoveNext();

    /// Position of a column of the current row (case-insensitive), or -1.
    int fieldIndex(const QString &name) const;
    int fieldCount() const { return m_layout ? int(m_layout->count()) : 0; }
    QString fieldName(int index) const;

    /// Positions of `names` in this cursor, looked up once per list and cached: the per-row path of bulk loads.
    const QList<int> &fieldIndexes(std::span<const QString> names) const;

    /// Value of the current row (or, while editing, of the edit buffer). Throws DbError for a missing column or
    /// when no row is current.
    QVariant Fields(const QString &name) const;
    QVariant value(int index) const;

    /// Starts a new row in the edit buffer, every column NULL.
    void AddNew();
    /// Sets a column of the edit buffer; editing the current row starts implicitly. Throws DbError for a missing
    /// column.
    void setField(const QString &name, const QVariant &value);
    /// Writes the edit buffer: INSERT after AddNew(), otherwise UPDATE of the changed columns. Throws DbError.
    void Update();
    enum class Returning {
        Row, ///< the written row becomes the current row (statement ... RETURNING *)
        RowIfKeyFree, ///< the same; an INSERT whose key is taken writes nothing and leaves no current row
        /// An INSERT under a key drawn from T_KeyID in the same statement (PostgreSQL): nothing is written when the
        /// table has no counter row, its keys are used up or the drawn key is taken (the key is then spent).
        RowWithDrawnKey,
    };
    /// Update() that reads the written row back in the same round trip (PostgreSQL and SQLite 3.35 on): false when
    /// no row was written. Throws DbError.
    bool Update(Returning returning);

private:
    void fetchCurrent();
    bool write(std::optional<Returning> returning);

    CConnection &m_connection;
    QSqlQuery m_query;
    // The statement m_query was lent by the connection for (SelectPrepared), to be handed back.
    QString m_leasedSql;
    std::shared_ptr<const ColumnLayout> m_layout;
    bool m_open = false;
    bool m_eof = true;

    QString m_table;
    QString m_keyColumn;
    enum class EditMode { None, Edit, AddNew } m_editMode = EditMode::None;
    QVariantList m_buffer;
    QList<bool> m_changed;
    QVariant m_originalKey;
};

#endif
