#include "filedialogs.h"

#include <QAbstractFileIconProvider>
#include <QDir>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QMimeDatabase>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;

namespace {

// Icons and type names from the name alone. The file dialog's model asks from its own thread, which
// QMimeDatabase allows.
class NameOnlyIconProvider : public QAbstractFileIconProvider
{
public:
    NameOnlyIconProvider() { setOptions(DontUseCustomDirectoryIcons); }

    QIcon icon(IconType type) const override { return m_standard.icon(type); }

    QIcon icon(const QFileInfo &info) const override
    {
        if (info.isDir()) {
            return m_standard.icon(Folder);
        }
        const QMimeType mime = m_mimes.mimeTypeForFile(info, QMimeDatabase::MatchExtension);
        const QIcon themed = QIcon::fromTheme(mime.iconName(), QIcon::fromTheme(mime.genericIconName()));
        return themed.isNull() ? m_standard.icon(File) : themed;
    }

    QString type(const QFileInfo &info) const override
    {
        if (info.isDir()) {
            return u"文件夹"_s;
        }
        const QMimeType mime = m_mimes.mimeTypeForFile(info, QMimeDatabase::MatchExtension);
        if (mime.isDefault()) {
            return info.suffix().isEmpty() ? u"文件"_s : info.suffix().toUpper() + u" 文件"_s;
        }
        return mime.comment().isEmpty() ? mime.name() : mime.comment();
    }

private:
    // QFileIconProvider's standard icons come from the style; only its per-file icon reads files.
    QFileIconProvider m_standard;
    QMimeDatabase m_mimes;
};

NameOnlyIconProvider &iconProvider()
{
    static NameOnlyIconProvider provider;
    return provider;
}

// An empty folder of the program's own. The dialog starts listing the folder it is made with at once, with the
// toolkit's icon provider that reads files; made over this folder it has nothing to read before it gets ours.
QString emptyFolder()
{
    static QTemporaryDir folder(QDir::tempPath() + u"/quillon-dialog-XXXXXX"_s);
    return folder.isValid() ? folder.path() : QString();
}

// The file dialog with the name-only icon provider, showing `dir` as the toolkit's dialogs do (a file in it
// selected when `dir` names one).
void prepare(QFileDialog &dialog, const QString &dir)
{
    dialog.setOption(QFileDialog::DontUseNativeDialog);
    dialog.setIconProvider(&iconProvider());
    const QFileInfo where(dir.isEmpty() ? QDir::currentPath() : dir);
    if (where.isDir()) {
        dialog.setDirectory(where.absoluteFilePath());
    } else {
        dialog.setDirectory(where.absolutePath());
        dialog.selectFile(where.fileName());
    }
}

QString run(QFileDialog &dialog, QString *selectedFilter)
{
    if (selectedFilter && !selectedFilter->isEmpty()) {
        dialog.selectNameFilter(*selectedFilter);
    }
    if (dialog.exec() != QDialog::Accepted) {
        return QString();
    }
    if (selectedFilter) {
        *selectedFilter = dialog.selectedNameFilter();
    }
    return dialog.selectedFiles().value(0);
}

} // namespace

QString FileDialogs::getOpenFileName(QWidget *parent, const QString &caption, const QString &dir, const QString &filter)
{
    QFileDialog dialog(parent, caption, emptyFolder(), filter);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    dialog.setFileMode(QFileDialog::ExistingFile);
    prepare(dialog, dir);
    return run(dialog, nullptr);
}

QString FileDialogs::getSaveFileName(QWidget *parent, const QString &caption, const QString &dir, const QString &filter,
                                     QString *selectedFilter, QFileDialog::Options options)
{
    QFileDialog dialog(parent, caption, emptyFolder(), filter);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    dialog.setOptions(options);
    prepare(dialog, dir);
    return run(dialog, selectedFilter);
}
