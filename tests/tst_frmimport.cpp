#include "cconnection.h"
#include "citems.h"
#include "frmimport.h"
#include "frmmain.h"
#include "itemfixtures.h"
#include "itemtype.h"
#include "prompt.h"
#include "testdatabase.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class FrmImportTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    ScriptedPrompt m_prompt;
    std::shared_ptr<CConnection> m_db;
    std::map<int, std::shared_ptr<CItems>> m_lists;

    CItems *list(ItemType type) { return m_lists.at(itemTypeNumber(type)).get(); }

    QString csv(const QString &name, const QString &text)
    {
        QFile f(m_dir.filePath(name));
        if (!f.open(QIODevice::WriteOnly)) {
            return QString();
        }
        f.write(text.toUtf8());
        return f.fileName();
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_dir.isValid()); }

    void init()
    {
        CPrompt::setCurrent(&m_prompt);
        m_prompt.clear();
        m_db = TestDatabase::create();
        QVERIFY(m_db);
        ItemFixtures::insert(*m_db, {1, 2, QString(), u"瓶"_s});
        ItemFixtures::insert(*m_db, {2, 4, u"E001"_s, u"旧货"_s, 0, 1});
        m_lists.clear();
        for (int type = 1; type <= 12; ++type) {
            auto items = std::make_shared<CItems>();
            QVERIFY(items->InitInstance(m_db, type));
            m_lists[type] = items;
        }
    }
    void cleanup() { CPrompt::setCurrent(nullptr); }

    void importShowsTheChecksBeforeAnythingIsWritten()
    {
        frmImport dialog(list(ItemType::Goods), list(ItemType::Unit), list(ItemType::GoodsType),
                         list(ItemType::ClientType));
        dialog.setFile(csv(u"goods.csv"_s, u"编号,名称,单位,单件售价\nA1,新品,瓶,2.5\nA2,坏行,箱,1\n"_s));
        QCOMPARE(dialog.cmbSheet->currentText(), u"goods"_s);
        QCOMPARE(dialog.grdPreview->rowCount(), 2);
        QCOMPARE(dialog.grdPreview->horizontalHeaderItem(2)->text(), u"单位"_s);

        QVERIFY(!dialog.cmdImport_Click());
        QCOMPARE(dialog.grdErrors->rowCount(), 1);
        QCOMPARE(dialog.grdErrors->item(0, 0)->text(), u"3"_s);
        QCOMPARE(dialog.grdErrors->item(0, 1)->text(), u"C(单位)"_s);
        QVERIFY(m_prompt.lastText().startsWith(u"有 1 行有错误"_s));
        QCOMPARE(list(ItemType::Goods)->Count(), 1);

        // Leaving the bad row out: the clerk agrees, and does not keep the refused row.
        dialog.chkSkipBad->setChecked(true);
        m_prompt.queueAnswer(CPrompt::vbYes);
        m_prompt.queueAnswer(CPrompt::vbNo);
        QVERIFY(dialog.cmdImport_Click());
        QCOMPARE(list(ItemType::Goods)->Count(), 2);
        QCOMPARE(list(ItemType::Goods)->GetItemByItemNo(u"A1"_s)->mUnitName(), u"瓶"_s);
    }

    void answeringNoWritesNothing()
    {
        frmImport dialog(list(ItemType::Unit), nullptr, nullptr, nullptr);
        dialog.setFile(csv(u"units.csv"_s, u"名称\n箱\n"_s));
        m_prompt.queueAnswer(CPrompt::vbNo);
        QVERIFY(!dialog.cmdImport_Click());
        QCOMPARE(list(ItemType::Unit)->Count(), 1);
    }

    void windowBacksUpAndRestoresEveryList()
    {
        frmMain form;
        for (const auto &[type, items] : m_lists) {
            form.setCollection(type, items);
        }
        form.setConnection(m_db);
        const QString file = m_dir.filePath(u"window.qlbak"_s);
        QVERIFY(form.BackupTo(file));
        m_db->Execute(u"DELETE FROM T_Item WHERE F_ID = 2"_s);
        list(ItemType::Goods)->Refresh(0);
        QCOMPARE(list(ItemType::Goods)->Count(), 0);

        m_prompt.queueAnswer(CPrompt::vbNo);
        QVERIFY(!form.RestoreFrom(file));
        QCOMPARE(list(ItemType::Goods)->Count(), 0);

        m_prompt.queueAnswer(CPrompt::vbYes);
        QVERIFY(form.RestoreFrom(file));
        QCOMPARE(list(ItemType::Goods)->Count(), 1);
        QCOMPARE(list(ItemType::Goods)->Item(1)->mUnitName(), u"瓶"_s);
    }
};

QTEST_MAIN(FrmImportTest)
#include "tst_frmimport.moc"
