#include "fixedheaderproxy.h"

#include "flexgridmodel.h"

FixedHeaderProxy::FixedHeaderProxy(FlexGridModel *grid, QObject *parent)
    : QAbstractProxyModel(parent)
    , m_grid(grid)
    , m_fixedRows(grid->FixedRows())
    , m_fixedCols(grid->FixedCols())
{
    QAbstractProxyModel::setSourceModel(grid);
    connectGrid();
}

void FixedHeaderProxy::connectGrid()
{
    // Insertions and removals among the scrolling cells pass through shifted; anything touching the fixed area
    // changes which cells are headings, and resets the view.
    connect(m_grid, &QAbstractItemModel::rowsAboutToBeInserted, this, [this](const QModelIndex &, int first, int last) {
        if (first >= m_fixedRows) {
            beginInsertRows({}, first - m_fixedRows, last - m_fixedRows);
        } else {
            beginResetModel();
        }
    });
    connect(m_grid, &QAbstractItemModel::rowsInserted, this, [this](const QModelIndex &, int first, int) {
        if (first >= m_fixedRows) {
            endInsertRows();
        } else {
            m_fixedRows = m_grid->FixedRows();
            endResetModel();
        }
    });
    connect(m_grid, &QAbstractItemModel::rowsAboutToBeRemoved, this, [this](const QModelIndex &, int first, int last) {
        if (first >= m_fixedRows) {
            beginRemoveRows({}, first - m_fixedRows, last - m_fixedRows);
        } else {
            beginResetModel();
        }
    });
    connect(m_grid, &QAbstractItemModel::rowsRemoved, this, [this](const QModelIndex &, int first, int) {
        if (first >= m_fixedRows) {
            endRemoveRows();
        } else {
            m_fixedRows = m_grid->FixedRows();
            endResetModel();
        }
    });
    connect(m_grid, &QAbstractItemModel::columnsAboutToBeInserted, this,
            [this](const QModelIndex &, int first, int last) {
                if (first >= m_fixedCols) {
                    beginInsertColumns({}, first - m_fixedCols, last - m_fixedCols);
                } else {
                    beginResetModel();
                }
            });
    connect(m_grid, &QAbstractItemModel::columnsInserted, this, [this](const QModelIndex &, int first, int) {
        if (first >= m_fixedCols) {
            endInsertColumns();
        } else {
            m_fixedCols = m_grid->FixedCols();
            endResetModel();
        }
    });
    connect(m_grid, &QAbstractItemModel::columnsAboutToBeRemoved, this,
            [this](const QModelIndex &, int first, int last) {
                if (first >= m_fixedCols) {
                    beginRemoveColumns({}, first - m_fixedCols, last - m_fixedCols);
                } else {
                    beginResetModel();
                }
            });
    connect(m_grid, &QAbstractItemModel::columnsRemoved, this, [this](const QModelIndex &, int first, int) {
        if (first >= m_fixedCols) {
            endRemoveColumns();
        } else {
            m_fixedCols = m_grid->FixedCols();
            endResetModel();
        }
    });
    connect(m_grid, &FlexGridModel::fixedCountsChanged, this, &FixedHeaderProxy::fixedCountsChanged);
    connect(m_grid, &QAbstractItemModel::modelAboutToBeReset, this, &FixedHeaderProxy::beginResetModel);
    connect(m_grid, &QAbstractItemModel::modelReset, this, [this] {
        m_fixedRows = m_grid->FixedRows();
        m_fixedCols = m_grid->FixedCols();
        endResetModel();
    });
    connect(m_grid, &QAbstractItemModel::dataChanged, this,
            [this](const QModelIndex &topLeft, const QModelIndex &bottomRight, const QList<int> &roles) {
                if (topLeft.row() < m_fixedRows && columnCount() > 0) {
                    Q_EMIT headerDataChanged(Qt::Horizontal, 0, columnCount() - 1);
                }
                if (topLeft.column() < m_fixedCols && rowCount() > 0) {
                    Q_EMIT headerDataChanged(Qt::Vertical, 0, rowCount() - 1);
                }
                const int top = std::max(topLeft.row(), m_fixedRows) - m_fixedRows;
                const int left = std::max(topLeft.column(), m_fixedCols) - m_fixedCols;
                const int bottom = bottomRight.row() - m_fixedRows;
                const int right = bottomRight.column() - m_fixedCols;
                if (top <= bottom && left <= right) {
                    Q_EMIT dataChanged(index(top, left), index(bottom, right), roles);
                }
            });
}

void FixedHeaderProxy::fixedCountsChanged()
{
    if (m_fixedRows == m_grid->FixedRows() && m_fixedCols == m_grid->FixedCols()) {
        return;
    }
    beginResetModel();
    m_fixedRows = m_grid->FixedRows();
    m_fixedCols = m_grid->FixedCols();
    endResetModel();
}

int FixedHeaderProxy::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : std::max(0, m_grid->Rows() - m_fixedRows);
}

int FixedHeaderProxy::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : std::max(0, m_grid->Cols() - m_fixedCols);
}

QModelIndex FixedHeaderProxy::index(int row, int column, const QModelIndex &parent) const
{
    if (parent.isValid() || row < 0 || column < 0 || row >= rowCount() || column >= columnCount()) {
        return {};
    }
    return createIndex(row, column);
}

QModelIndex FixedHeaderProxy::parent(const QModelIndex &) const
{
    return {};
}

QModelIndex FixedHeaderProxy::mapToSource(const QModelIndex &proxyIndex) const
{
    if (!proxyIndex.isValid()) {
        return {};
    }
    return m_grid->index(proxyIndex.row() + m_fixedRows, proxyIndex.column() + m_fixedCols);
}

QModelIndex FixedHeaderProxy::mapFromSource(const QModelIndex &sourceIndex) const
{
    if (!sourceIndex.isValid() || sourceIndex.row() < m_fixedRows || sourceIndex.column() < m_fixedCols) {
        return {};
    }
    return index(sourceIndex.row() - m_fixedRows, sourceIndex.column() - m_fixedCols);
}

QVariant FixedHeaderProxy::headerData(int section, Qt::Orientation orientation, int role) const
{
    const bool horizontal = orientation == Qt::Horizontal;
    const int fixed = horizontal ? m_fixedRows : m_fixedCols;
    if (fixed == 0 || section < 0) {
        return {};
    }
    if (role == Qt::DisplayRole) {
        QStringList lines;
        for (int i = 0; i < fixed; ++i) {
            lines.append(horizontal ? m_grid->TextMatrix(i, section + m_fixedCols)
                                    : m_grid->TextMatrix(section + m_fixedRows, i));
        }
        return lines.join(u'\n');
    }
    if (role == Qt::TextAlignmentRole) {
        const int col = horizontal ? section + m_fixedCols : fixed - 1;
        switch (m_grid->FixedAlignment(col)) {
        case FlexGridModel::AlignLeft:
            return QVariant::fromValue(Qt::Alignment(Qt::AlignLeft | Qt::AlignVCenter));
        case FlexGridModel::AlignRight:
            return QVariant::fromValue(Qt::Alignment(Qt::AlignRight | Qt::AlignVCenter));
        default:
            return QVariant::fromValue(Qt::Alignment(Qt::AlignCenter));
        }
    }
    return {};
}
