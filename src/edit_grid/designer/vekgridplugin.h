#ifndef QUILLON_VEKGRIDPLUGIN_H
#define QUILLON_VEKGRIDPLUGIN_H

#include <QtUiPlugin/QDesignerCustomWidgetInterface>

/**
 * Offers VekGrid to Qt Designer and to QUiLoader. Controls created inside Designer are in design mode (Row, Clip
 * and SetupFile refuse assignments); controls a running program loads from a .ui file are not.
 */
class VekGridPlugin : public QObject, public QDesignerCustomWidgetInterface
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "org.qt-project.Qt.QDesignerCustomWidgetInterface")
    Q_INTERFACES(QDesignerCustomWidgetInterface)

public:
    explicit VekGridPlugin(QObject *parent = nullptr);
    Q_DISABLE_COPY_MOVE(VekGridPlugin)

    QString name() const override;
    QString group() const override;
    QString toolTip() const override;
    QString whatsThis() const override;
    QString includeFile() const override;
    QIcon icon() const override;
    bool isContainer() const override;
    QWidget *createWidget(QWidget *parent) override;
    bool isInitialized() const override;
    void initialize(QDesignerFormEditorInterface *core) override;
    QString domXml() const override;

private:
    QDesignerFormEditorInterface *m_core = nullptr;
};

#endif
