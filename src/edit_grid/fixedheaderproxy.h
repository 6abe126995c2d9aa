#ifndef QUILLON_FIXEDHEADERPROXY_H
#define QUILLON_FIXEDHEADERPROXY_H

// Shows a FlexGridModel's scrolling cells as a table and its fixed rows and columns as the table's headers, so that
// headings stay in place while the cells scroll. Several fixed rows (or columns) show as one header of several lines.

#include <QAbstractProxyModel>

class FlexGridModel;

class FixedHeaderProxy : public QAbstractProxyModel
{
    Q_OBJECT

public:
    explicit FixedHeaderProxy(FlexGridModel *grid, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QModelIndex index(int row, int column, const QModelIndex &parent = QModelIndex()) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    QModelIndex mapToSource(const QModelIndex &proxyIndex) const override;
    QModelIndex mapFromSource(const QModelIndex &sourceIndex) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

    /// To be called after the grid's fixed counts changed.
    void fixedCountsChanged();

private:
    void connectGrid();

    FlexGridModel *m_grid;
    int m_fixedRows = 0;
    int m_fixedCols = 0;
};

#endif
