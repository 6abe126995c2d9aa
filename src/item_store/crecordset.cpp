#include "crecordset.h"

#include "cconnection.h"

using namespace Qt::StringLiterals;

ColumnLayout::ColumnLayout(const QSqlRecord &record)
{
    for (int i = 0; i < record.count(); ++i) {
        m_names.append(record.fieldName(i));
        m_index.insert(record.fieldName(i).toLower(), i);
    }
}

const QList<int> &ColumnLayout::indexesOf(std::span<const QString> names) const
{
    auto it = m_lists.find(names.data());
    if (it == m_lists.end() || it->size() != qsizetype(names.size())) {
        QList<int> indexes;
        indexes.reserve(qsizetype(names.size()));
        for (const QString &name : names) {
            indexes.append(indexOf(name));
        }
        it = m_lists.insert(names.data(), indexes);
    }
    return *it;
}

CRecordset::CRecordset(CConnection &connection)
    : m_connection(connection)
{ }

CRecordset::~CRecordset()
{
    Close();
}

void CRecordset::Open(const QString &sql, const QVariantList &params)
{
    Close();
    m_query = m_connection.SelectPrepared(sql, params);
    if (!params.isEmpty()) {
        m_leasedSql = sql;
    }
    m_layout = m_connection.columnLayout(sql, m_query);
    m_open = true;
    m_eof = !CConnection::next(m_query);
}

void CRecordset::OpenTable(const QString &table, const QString &keyColumn, const QVariant &key, Lock lock)
{
    Close();
    m_connection.requireTable(table);
    QString sql = u"Select * From "_s + table + u" Where "_s + keyColumn + u"=?"_s;
    if (lock == ForUpdate && m_connection.engine() == CConnection::Engine::PostgreSQL) {
        sql += u" FOR UPDATE"_s;
    }
    m_query = m_connection.SelectPrepared(sql, {key});
    m_leasedSql = sql;
    m_layout = m_connection.columnLayout(sql, m_query);
    m_table = table;
    m_keyColumn = keyColumn;
    m_open = true;
    m_eof = !CConnection::next(m_query);
}

void CRecordset::OpenForInsert(const QString &table, const QString &keyColumn)
{
    Close();
    m_layout = m_connection.tableLayout(table);
    m_table = table;
    m_keyColumn = keyColumn;
    m_open = true;
    m_eof = true;
}

void CRecordset::Close()
{
    if (!m_leasedSql.isEmpty()) {
        m_connection.Recycle(m_leasedSql, std::move(m_query));
        m_leasedSql.clear();
    }
    m_query = QSqlQuery();
    m_open = false;
    m_eof = true;
    m_table.clear();
    m_keyColumn.clear();
    m_editMode = EditMode::None;
    m_buffer.clear();
    m_changed.clear();
}

void CRecordset::MoveNext()
{
    if (!m_open || m_eof) {
        throw DbError(u"记录集已到末尾"_s);
    }
    m_editMode = EditMode::None;
    m_eof = !CConnection::next(m_query);
}

int CRecordset::fieldIndex(const QString &name) const
{
    return m_layout ? m_layout->indexOf(name) : -1;
}

QString CRecordset::fieldName(int index) const
{
    return index >= 0 && index < fieldCount() ? m_layout->name(index) : QString();
}

const QList<int> &CRecordset::fieldIndexes(std::span<const QString> names) const
{
    static const QList<int> none;
    return m_layout ? m_layout->indexesOf(names) : none;
}

QVariant CRecordset::value(int index) const
{
    if (index < 0 || index >= fieldCount()) {
        throw DbError(u"字段序号超出范围: "_s + QString::number(index));
    }
    if (m_editMode != EditMode::None) {
        return m_buffer.at(index);
    }
    if (!m_open || m_eof) {
        throw DbError(u"没有当前记录"_s);
    }
    return m_query.value(index);
}

QVariant CRecordset::Fields(const QString &name) const
{
    const int index = fieldIndex(name);
    if (index < 0) {
        throw DbError(u"找不到字段: "_s + name);
    }
    return value(index);
}

void CRecordset::fetchCurrent()
{
    m_buffer.clear();
    m_buffer.reserve(fieldCount());
    for (int i = 0; i < fieldCount(); ++i) {
        m_buffer.append(m_query.value(i));
    }
    m_changed = QList<bool>(fieldCount(), false);
    const int key = fieldIndex(m_keyColumn);
    m_originalKey = key >= 0 ? m_buffer.at(key) : QVariant();
}

void CRecordset::AddNew()
{
    if (m_table.isEmpty()) {
        throw DbError(u"记录集不可更新"_s);
    }
    m_editMode = EditMode::AddNew;
    m_buffer = QVariantList(fieldCount());
    m_changed = QList<bool>(fieldCount(), false);
    m_originalKey = QVariant();
}

void CRecordset::setField(const QString &name, const QVariant &value)
{
    if (m_table.isEmpty()) {
        throw DbError(u"记录集不可更新"_s);
    }
    const int index = fieldIndex(name);
    if (index < 0) {
        throw DbError(u"找不到字段: "_s + name);
    }
    if (m_editMode == EditMode::None) {
        if (!m_open || m_eof) {
            throw DbError(u"没有当前记录"_s);
        }
        fetchCurrent();
        m_editMode = EditMode::Edit;
    }
    m_buffer[index] = value;
    m_changed[index] = true;
}

void CRecordset::Update()
{
    write(std::nullopt);
}

bool CRecordset::Update(Returning returning)
{
    return write(returning);
}

bool CRecordset::write(std::optional<Returning> returning)
{
    if (m_editMode == EditMode::None) {
        return true;
    }
    QStringList columns;
    QVariantList params;
    for (int i = 0; i < fieldCount(); ++i) {
        if (m_changed.at(i)) {
            columns.append(m_layout->name(i));
            params.append(m_buffer.at(i));
        }
    }
    QString sql;
    if (m_editMode == EditMode::AddNew) {
        if (columns.isEmpty()) {
            throw DbError(u"新记录没有任何字段值"_s);
        }
        if (returning == Returning::RowWithDrawnKey) {
            qsizetype key = columns.size() - 1;
            while (key >= 0 && columns.at(key).compare(m_keyColumn, Qt::CaseInsensitive) != 0) {
                --key;
            }
            if (key >= 0) {
                columns.removeAt(key);
                params.removeAt(key);
            }
            params.prepend(m_table);
            const QString marks = QString(u",?"_s).repeated(columns.size());
            // The parameters take the types of the columns they go to, as in a VALUES list.
            sql = u"With k As (Update T_KeyID Set F_MaxID=F_MaxID+1 Where F_TableName=? And F_MaxID<2147483647 "
                  "Returning F_MaxID-1 As F_DrawnKey) Insert Into "_s
                + m_table + u" ("_s + m_keyColumn + (columns.isEmpty() ? QString() : u","_s + columns.join(u','))
                + u") Select k.F_DrawnKey"_s + marks + u" From k On Conflict ("_s + m_keyColumn + u") Do Nothing"_s;
        } else {
            const QString marks = QString(u",?"_s).repeated(columns.size()).mid(1);
            sql = u"Insert Into "_s + m_table + u" ("_s + columns.join(u',') + u") Values ("_s + marks + u')';
            if (returning == Returning::RowIfKeyFree) {
                sql += u" On Conflict ("_s + m_keyColumn + u") Do Nothing"_s;
            }
        }
    } else if (!columns.isEmpty() || returning) {
        if (columns.isEmpty()) {
            // Nothing changed, but the row is to be read back: a write of the key onto itself does both.
            columns.append(m_keyColumn);
            params.append(m_originalKey);
        }
        params.append(m_originalKey);
        sql = u"Update "_s + m_table + u" Set "_s + columns.join(u"=?,"_s) + u"=? Where "_s + m_keyColumn + u"=?"_s;
    }
    m_editMode = EditMode::None;
    if (sql.isEmpty()) {
        return true;
    }
    if (!returning) {
        if (m_connection.Execute(sql, params) < 1 && !sql.startsWith(u"Insert"_s)) {
            throw DbError(u"要更新的记录已不存在"_s);
        }
        return true;
    }
    sql += u" Returning *"_s;
    if (!m_leasedSql.isEmpty()) {
        m_connection.Recycle(m_leasedSql, std::move(m_query));
    }
    m_query = m_connection.SelectPrepared(sql, params);
    m_leasedSql = sql;
    m_layout = m_connection.columnLayout(sql, m_query);
    m_open = true;
    m_eof = !CConnection::next(m_query);
    return !m_eof;
}
