#include "ui/tables/TableWidgetFiles.h"
#include "ui/widgets/QTableWidgetWithCopyPaste.h"

#include <QApplication>
#include <QClipboard>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <QtTest>

namespace {

// Answers the next modal message box with Ok and remembers what it said.
class MessageBoxAnswerer : public QObject {
public:
    MessageBoxAnswerer()
    {
        connect(&m_poll, &QTimer::timeout, this, [this] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (!box)
                return;
            title = box->windowTitle();
            text = box->text();
            icon = box->icon();
            buttons = box->buttons().size();
            box->button(QMessageBox::Ok)->click();
        });
        m_poll.start(5);
    }

    QString title;
    QString text;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    int buttons = 0;

private:
    QTimer m_poll;
};

const QString unableToPaste = "Invalid clipboard data, unable to perform paste operation.";
const QString wrongColumns = "Invalid clipboard data, incorrect number of columns.";

// A block of rows x columns cells "r<row>c<column>", each row ended by "\n".
QString block(int rows, int columns)
{
    QString text;
    for (int r = 0; r < rows; ++r) {
        QStringList cells;
        for (int c = 0; c < columns; ++c)
            cells << QString("r%1c%2").arg(r).arg(c);
        text += cells.join('\t') + '\n';
    }
    return text;
}

} // namespace

class CopyPasteTableTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void pasteReplacesWholeTableFromRowZero();
    void pasteRefusals_data();
    void pasteRefusals();
    void copyJoinsSelectionInRowOrder();
    void standardKeysCopyAndPaste();

private:
    void setClipboard(const QString &text) { QApplication::clipboard()->setText(text); }
    QString clipboard() const { return QApplication::clipboard()->text(); }

    QTableWidgetWithCopyPaste *m_table = nullptr;
    QScopedPointer<QTableWidgetWithCopyPaste> m_owner;
};

void CopyPasteTableTest::init()
{
    // 4 columns and 7 rows, every cell "old".
    m_owner.reset(new QTableWidgetWithCopyPaste(7, 4));
    m_table = m_owner.data();
    for (int r = 0; r < 7; ++r)
        for (int c = 0; c < 4; ++c)
            m_table->setItem(r, c, new QTableWidgetItem("old"));
}

void CopyPasteTableTest::pasteReplacesWholeTableFromRowZero()
{
    m_table->setCurrentCell(5, 3);
    setClipboard(block(3, 4));
    MessageBoxAnswerer answerer;
    m_table->paste();
    QCoreApplication::processEvents();
    QVERIFY(answerer.text.isEmpty());
    QCOMPARE(m_table->rowCount(), 3);
    QCOMPARE(m_table->columnCount(), 4);
    QCOMPARE(m_table->item(0, 0)->text(), QString("r0c0"));
    QCOMPARE(m_table->item(2, 3)->text(), QString("r2c3"));

    // Empty cells inside the block stay empty cells.
    setClipboard("a\t\tb\tc\n\td\te\tf\n");
    m_table->paste();
    QCOMPARE(m_table->rowCount(), 2);
    QCOMPARE(tableToStringMatrix(m_table), (StringMatrix{{"a", "", "b", "c"}, {"", "d", "e", "f"}}));

    // The same 12 cells without the last line end count one row: 2 rows of 6.
    QTableWidgetWithCopyPaste wide(1, 6);
    setClipboard(block(3, 4).chopped(1));
    wide.paste();
    QCOMPARE(wide.rowCount(), 2);
    QCOMPARE(wide.item(1, 5)->text(), QString("r2c3"));
}

void CopyPasteTableTest::pasteRefusals_data()
{
    QTest::addColumn<QString>("clipboard");
    QTest::addColumn<QString>("message");
    QTest::newRow("block without final line end") << block(3, 4).chopped(1) << wrongColumns;
    QTest::newRow("too narrow") << block(2, 3) << wrongColumns;
    QTest::newRow("cells do not divide into rows") << "a\tb\nc\n" << unableToPaste;
    // Trailing empty cells are all dropped, so the last row comes up short.
    QTest::newRow("trailing empty cells") << "a\tb\tc\td\ne\t\t\t\n" << unableToPaste;
    QTest::newRow("no line end at all") << "a\tb\tc\td" << unableToPaste;
    QTest::newRow("empty clipboard") << "" << unableToPaste;
    QTest::newRow("only line ends") << "\n\n" << wrongColumns;
}

void CopyPasteTableTest::pasteRefusals()
{
    QFETCH(QString, clipboard);
    QFETCH(QString, message);
    const StringMatrix before = tableToStringMatrix(m_table);
    setClipboard(clipboard);
    MessageBoxAnswerer answerer;
    m_table->paste();
    QCOMPARE(answerer.text, message);
    QCOMPARE(answerer.title, QString("Error"));
    QCOMPARE(answerer.icon, QMessageBox::Critical);
    QCOMPARE(answerer.buttons, 1);
    QCOMPARE(tableToStringMatrix(m_table), before);
}

void CopyPasteTableTest::copyJoinsSelectionInRowOrder()
{
    setClipboard(block(3, 4));
    m_table->paste();

    m_table->clearSelection();
    m_table->copy();
    QCOMPARE(clipboard(), block(3, 4)); // nothing selected: clipboard untouched

    m_table->setRangeSelected(QTableWidgetSelectionRange(0, 1, 0, 2), true);
    m_table->copy();
    QCOMPARE(clipboard(), QString("r0c1\tr0c2\n"));

    // Selected bottom-up and not as a rectangle: written in row order, gaps closed.
    m_table->clearSelection();
    m_table->setRangeSelected(QTableWidgetSelectionRange(2, 3, 2, 3), true);
    m_table->setRangeSelected(QTableWidgetSelectionRange(0, 0, 0, 0), true);
    m_table->setRangeSelected(QTableWidgetSelectionRange(0, 2, 0, 2), true);
    m_table->copy();
    QCOMPARE(clipboard(), QString("r0c0\tr0c2\nr2c3\n"));

    // A whole table copied and pasted back is unchanged.
    const StringMatrix before = tableToStringMatrix(m_table);
    m_table->selectAll();
    m_table->copy();
    m_table->paste();
    QCOMPARE(tableToStringMatrix(m_table), before);
}

void CopyPasteTableTest::standardKeysCopyAndPaste()
{
    m_table->setRangeSelected(QTableWidgetSelectionRange(1, 0, 1, 1), true);
    QTest::keySequence(m_table, QKeySequence(QKeySequence::Copy));
    QCOMPARE(clipboard(), QString("old\told\n"));

    setClipboard(block(2, 4));
    QTest::keySequence(m_table, QKeySequence(QKeySequence::Paste));
    QCOMPARE(m_table->rowCount(), 2);

    // Other keys still reach the table: the arrow moves the current cell.
    m_table->setCurrentCell(0, 0);
    QTest::keyClick(m_table, Qt::Key_Down);
    QCOMPARE(m_table->currentRow(), 1);
}

QTEST_MAIN(CopyPasteTableTest)
#include "test_copy_paste_table.moc"
