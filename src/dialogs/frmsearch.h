#ifndef QUILLON_FRMSEARCH_H
#define QUILLON_FRMSEARCH_H

#include "quillon_export.h"

#include <QAbstractItemView>
#include <QDialog>
#include <QPointer>

class QAbstractItemView;
class QLineEdit;
class QPushButton;
class QLabel;

/**
 * Finds an item in a grid bound to an items collection (ItemTableModel) by number, name or mnemonic code and
 * selects its row. Each search starts after the grid's current row and wraps around. Enter moves between the
 * fields. Not a filter: the grid keeps all its rows.
 *
 * The rows are found through the collection's text index (CItems::FindText), which showing the dialog prepares;
 * rows with pending edits and new rows are tested as the grid shows them.
 */
class QUILLON_EXPORT frmSearch : public QDialog
{
    Q_OBJECT

public:
    explicit frmSearch(QWidget *parent = nullptr);
    ~frmSearch() override;
    Q_DISABLE_COPY_MOVE(frmSearch)

    QLineEdit *const txtNo;
    QLineEdit *const txtName;
    QLineEdit *const txtSpell;
    QPushButton *const cmdFind;
    QPushButton *const cmdClose;
    QLabel *const lblResult;

    /// The grid to search; its model must be an ItemTableModel.
    void setGrid(QAbstractItemView *grid);
    QAbstractItemView *grid() const { return m_grid; }

    /// The first row after `fromRow` (wrapping) whose item matches every filled field; -1 when none.
    int FindNext(int fromRow) const;
    /// Searches from the grid's current row and selects what it finds; reports when nothing matches.
    void cmdFind_Click();

Q_SIGNALS:
    void Found(int row);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    // Items read into the search index per turn of the event loop (a few milliseconds' work).
    static constexpr int kPrepareSlice = 32768;
    void prepareSearch();

    QPointer<QAbstractItemView> m_grid;
};

#endif
