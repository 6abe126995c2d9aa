#ifndef QUILLON_FILEDIALOGS_H
#define QUILLON_FILEDIALOGS_H

#include "quillon_export.h"

#include <QFileDialog>
#include <QString>

class QWidget;

/**
 * The program's open and save dialogs: Qt's own file dialog, told file types and icons by the file's name only.
 *
 * A dialog that guesses types from file contents opens every file it lists; opening and closing the live SQLite
 * database outside SQLite drops its locks, so the dialogs never read a file. No native (desktop) dialogs.
 */
namespace FileDialogs {

/// The file chosen to read, or "" when the dialog was cancelled.
QUILLON_EXPORT QString getOpenFileName(QWidget *parent, const QString &caption, const QString &dir,
                                       const QString &filter);
/// The file chosen to write, or "" when cancelled; `selectedFilter` in and out as QFileDialog's.
QUILLON_EXPORT QString getSaveFileName(QWidget *parent, const QString &caption, const QString &dir,
                                       const QString &filter, QString *selectedFilter = nullptr,
                                       QFileDialog::Options options = {});

} // namespace FileDialogs

#endif
