#include "ui/MainWindow.h"

#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRandomGenerator>
#include <QScrollBar>
#include <QTableWidget>
#include <QTextEdit>
#include <QTimer>
#include <QtTest>

namespace {

QString exampleFile(const char *name)
{
    QFile file(QStringLiteral(AMBREL_EXAMPLES_DIR "/pbpk/model/") + QLatin1String(name));
    return file.open(QIODevice::ReadOnly | QIODevice::Text) ? QString::fromUtf8(file.readAll()) : QString();
}

// The format of the character at position, as the editor shows it.
QTextCharFormat formatAt(const QTextEdit *editor, int position)
{
    QTextCursor cursor(editor->document());
    cursor.setPosition(position + 1);
    return cursor.charFormat();
}

bool isBold(const QTextEdit *editor, int position)
{
    return formatAt(editor, position).fontWeight() > QFont::Normal;
}

bool isItalic(const QTextEdit *editor, int position)
{
    return formatAt(editor, position).fontItalic();
}

// Positions of the characters shown in the colour.
QVector<int> positionsIn(const QTextEdit *editor, const QColor &colour)
{
    QVector<int> positions;
    for (int p = 0; p < editor->document()->characterCount() - 1; ++p) {
        if (formatAt(editor, p).foreground().color() == colour)
            positions << p;
    }
    return positions;
}

// The positions of every character of every occurrence of needle.
QVector<int> occurrences(const QString &text, const QString &needle)
{
    QVector<int> positions;
    for (int at = text.indexOf(needle); at >= 0; at = text.indexOf(needle, at + needle.size())) {
        for (int i = 0; i < needle.size(); ++i)
            positions << at + i;
    }
    return positions;
}

} // namespace

class EditorAssistanceTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void reparseOnlyAfterTypingStops();
    void colouring();
    void colouringKeepsTheTypedText_data();
    void colouringKeepsTheTypedText();
    void nameListsAndClipboard();
    void findReplaceAndUndo();
    void cursorAndScrollSurviveRecolouring();
    void messageAreaAndStructureJacobian();
    void badInputStaysResponsive_data();
    void badInputStaysResponsive();

private:
    template<typename T = QWidget>
    T *find(const char *name) const
    {
        T *object = m_window->findChild<T *>(QLatin1String(name));
        if (!object)
            qFatal("no object named %s", name);
        return object;
    }
    QTextEdit *ode() const { return find<QTextEdit>("textEdit_ODEExpression"); }
    QString label(const char *name) const { return find<QLabel>(name)->text(); }
    bool timerRunning() const { return find<QTimer>("textEdit_ODEExpression_timer")->isActive(); }
    void click(const char *button) const { QTest::mouseClick(find<QPushButton>(button), Qt::LeftButton); }
    // Puts the texts into the editors and re-parses at once ("update Highlights").
    void setModel(const QString &text, const QString &auxiliary = QString()) const
    {
        ode()->setPlainText(text);
        find<QTextEdit>("textEdit_auxFunction")->setPlainText(auxiliary);
        click("pushButton");
    }

    MainWindow *m_window = nullptr;
};

void EditorAssistanceTest::init()
{
    m_window = new MainWindow;
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window));
}

void EditorAssistanceTest::cleanup()
{
    delete m_window;
    m_window = nullptr;
}

void EditorAssistanceTest::reparseOnlyAfterTypingStops()
{
    ode()->setFocus();
    QElapsedTimer sinceLastKey;
    // Keystrokes 400 ms apart for 1.6 s: the timer never runs out.
    for (const char *piece : {"dAdt", " = ", "-k", "*A"}) {
        QTest::keyClicks(ode(), QLatin1String(piece));
        sinceLastKey.start();
        QTest::qWait(400);
        QCOMPARE(label("lab_variableNames"), QString("Variables:"));
        QCOMPARE(label("lab_parameterNames"), QString("Parameters:"));
    }
    QTRY_COMPARE_WITH_TIMEOUT(label("lab_variableNames"), QString("Variables: A"), 3000);
    QVERIFY2(sinceLastKey.elapsed() >= 950, qPrintable(QString::number(sinceLastKey.elapsed())));
    QCOMPARE(label("lab_parameterNames"), QString("Parameters: k"));
    QVERIFY(isBold(ode(), 1) && !isBold(ode(), 0));     // dAdt
    QVERIFY(isItalic(ode(), 8) && !isItalic(ode(), 7)); // -k
    // The re-colouring replaced the content without starting the timer again.
    QVERIFY(!timerRunning());
    QCOMPARE(ode()->toPlainText(), QString("dAdt = -k*A"));
}

void EditorAssistanceTest::colouring()
{
    // State kA, parameters b and k: "b" is never italic, k inside kA is.
    const QString text = "dkAdt = -k*kA + b*kA ; first-order loss\ndBdt = kA";
    setModel(text);
    QCOMPARE(label("lab_parameterNames"), QString("Parameters: b k"));
    for (int p : occurrences(text, "kA"))
        QVERIFY(isBold(ode(), p));
    for (int p : occurrences(text, "k"))
        QVERIFY(isItalic(ode(), p));
    for (int p : occurrences(text, "b"))
        QVERIFY(!isItalic(ode(), p));
    QVERIFY(!isItalic(ode(), 2) && !isBold(ode(), text.indexOf('=')));
    // Grey from ";" to the end of its line only.
    const QVector<int> comment = occurrences(text, "; first-order loss");
    QCOMPARE(positionsIn(ode(), QColor("silver")), comment);

    // A name is marked whole where a shorter name is part of it.
    const QString numbered = "dA1dt = -k1*A1\ndA10dt = k1*A1 - k10*A10";
    setModel(numbered);
    for (int p : occurrences(numbered, "A10"))
        QVERIFY(isBold(ode(), p));
    for (int p : occurrences(numbered, "k10"))
        QVERIFY(isItalic(ode(), p));

    // The auxiliary editor is coloured the same way; its own parameter V
    // joins the parameters.
    setModel("dAdt = -CL*C", "C = A/V ; concentration");
    auto *aux = find<QTextEdit>("textEdit_auxFunction");
    QVERIFY(isBold(aux, 4) && isItalic(aux, 6) && !isBold(aux, 0));
    QCOMPARE(positionsIn(aux, QColor("silver")).size(), QString("; concentration").size());
    QCOMPARE(label("lab_parameterNames"), QString("Parameters: CL V"));
}

void EditorAssistanceTest::colouringKeepsTheTypedText_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("blanks and tabs") << "  dAdt  =\t-k * A   ; two  blanks\n\n   dBdt = A\n";
    QTest::newRow("markup characters") << "dAdt = -k*A ; a < b & c > d <b>bold</b> &amp;";
    // "f" and "on" occur in <font>, "i" in <i>, "r" in <br>, "color" and
    // "silver" in the comment font.
    QTest::newRow("names inside tags") << "dAdt = -f*i*on*r*A ; color silver\ndBdt = A*color*silver ; c";
    QTest::newRow("state b") << "dbdt = -k*b\ndAdt = b";
    QTest::newRow("dots and underscores") << "dA_1dt = -k.1*A_1 + k_2\ndA.2dt = A_1";
}

void EditorAssistanceTest::colouringKeepsTheTypedText()
{
    QFETCH(QString, text);
    setModel(text);
    QCOMPARE(ode()->toPlainText(), text);
}

void EditorAssistanceTest::nameListsAndClipboard()
{
    setModel("dAdt = -k*A\ndBdt = k*A - CL*B");
    const QStringList entries{"=== Variables ===", "A", "B", "=== Parameters ===", "CL", "k"};
    for (const char *name : {"comboBox_copyVPnames", "comboBox_ODE_text_replace"}) {
        auto *box = find<QComboBox>(name);
        QStringList items;
        for (int i = 0; i < box->count(); ++i)
            items << box->itemText(i);
        QCOMPARE(items, entries);
    }

    // Choosing with the keyboard, as a user does: a name copies, a header
    // leaves the clipboard alone.
    auto *copy = find<QComboBox>("comboBox_copyVPnames");
    QClipboard *clipboard = QApplication::clipboard();
    copy->setFocus();
    QTest::keyClick(copy, Qt::Key_Down);
    QCOMPARE(clipboard->text(), QString("A"));
    QTest::keyClick(copy, Qt::Key_Down);
    clipboard->setText("before");
    QTest::keyClick(copy, Qt::Key_Down);
    QCOMPARE(copy->currentText(), QString("=== Parameters ==="));
    QCOMPARE(clipboard->text(), QString("before"));
    QTest::keyClick(copy, Qt::Key_Home);
    QCOMPARE(clipboard->text(), QString("before"));
}

void EditorAssistanceTest::findReplaceAndUndo()
{
    const QString original = "dAdt = -k*A ; loss\ndBdt = k*A - k2*B";
    setModel(original);
    auto *names = find<QComboBox>("comboBox_ODE_text_replace");
    names->setCurrentText("k");

    // Find: blanks removed, operators padded, every k (also in k2) in blue;
    // the marks stay, as the editor's own change starts no re-parse.
    click("pushButton_findODEText");
    const QString found = "dAdt= - k * A;loss\ndBdt=k * A - k2 * B";
    QCOMPARE(ode()->toPlainText(), found);
    QCOMPARE(positionsIn(ode(), QColor("blue")), occurrences(found, "k"));
    QVERIFY(!timerRunning());

    QTest::keyClicks(find<QLineEdit>("lineEdit_ODEs_replace_to"), "kel");
    click("pushButton_ODEsReplace");
    const QString replaced = "dAdt= - kel * A;loss\ndBdt=kel * A - kel2 * B";
    QCOMPARE(ode()->toPlainText(), replaced);
    QCOMPARE(positionsIn(ode(), QColor("red")), occurrences(replaced, "kel"));
    QCOMPARE(label("lab_parameterNames"), QString("Parameters: kel kel2"));

    // Undo takes back the replace, then the find's blanks.
    click("pushButton_ODEs_undo");
    QCOMPARE(ode()->toPlainText(), found);
    click("pushButton_ODEs_undo");
    QCOMPARE(ode()->toPlainText(), original);
    QCOMPARE(label("lab_parameterNames"), QString("Parameters: k k2"));
    QVERIFY(isItalic(ode(), original.indexOf('k')));
    click("pushButton_ODEs_undo");
    QCOMPARE(ode()->toPlainText(), original);
}

void EditorAssistanceTest::cursorAndScrollSurviveRecolouring()
{
    QString text;
    for (int i = 0; i < 150; ++i)
        text += QString("dA%1dt = -k%1*A%1 + k*A%2 ; compartment %1\n").arg(i).arg((i + 1) % 150);
    setModel(text);

    // Type in the middle of the text, scrolled away from its start.
    const int middle = text.indexOf("dA75dt") + 3;
    QTextCursor cursor = ode()->textCursor();
    cursor.setPosition(middle);
    ode()->setTextCursor(cursor);
    ode()->setFocus();
    QScrollBar *bar = ode()->verticalScrollBar();
    bar->setValue(bar->maximum() / 2);
    QTest::keyClicks(ode(), "x");
    const int scrolled = bar->value();
    QVERIFY(scrolled > 0);

    QTRY_VERIFY_WITH_TIMEOUT(label("lab_variableNames").contains("A7x5"), 3000);
    QCOMPARE(ode()->textCursor().position(), middle + 1);
    QCOMPARE(bar->value(), scrolled);
    QVERIFY(isBold(ode(), middle)); // the x of the new name A7x5

    // A selection survives too.
    cursor.setPosition(10);
    cursor.setPosition(20, QTextCursor::KeepAnchor);
    ode()->setTextCursor(cursor);
    click("pushButton");
    QCOMPARE(ode()->textCursor().anchor(), 10);
    QCOMPARE(ode()->textCursor().position(), 20);
}

void EditorAssistanceTest::messageAreaAndStructureJacobian()
{
    // The parameter specification (empty, but k needs a row) first, then the
    // ODE system's message, its "<variable name>" shown as text.
    setModel("dAdt = -k*A\ndAdt = -k*A");
    auto *pane = find<QTextEdit>("textEdit_error");
    const int specification = pane->toPlainText().indexOf("Number of parameter specification does not match");
    const int duplicate =
            pane->toPlainText().indexOf("The left hand side d<variable name>dt need to be unique");
    QVERIFY2(specification >= 0 && duplicate > specification, qPrintable(pane->toPlainText()));
    QVERIFY(pane->toHtml().contains("#ff0000"));

    setModel("dAdt = -A\ndBdt = A - B^2\ndCdt = 1");
    QCOMPARE(pane->toPlainText(), QString());

    auto *table = find<QTableWidget>("tableWidget_jacobian");
    QCOMPARE(table->rowCount(), 3);
    QCOMPARE(table->columnCount(), 3);
    const QStringList cells{"1", "0", "0", "1", "-1", "0", "0", "0", "0"};
    for (int c = 0; c < cells.size(); ++c) {
        QCOMPARE(table->horizontalHeaderItem(c % 3)->text(), QString("ABC").mid(c % 3, 1));
        QCOMPARE(table->verticalHeaderItem(c / 3)->text(), QString("ABC").mid(c / 3, 1));
        QCOMPARE(table->item(c / 3, c % 3)->text(), cells[c]);
    }
}

void EditorAssistanceTest::badInputStaysResponsive_data()
{
    QTest::addColumn<QString>("ode");
    QTest::addColumn<QString>("auxiliary");

    QTest::newRow("unbalanced parentheses") << "dAdt = -k*(A\ndBdt = (k*A))) - (B"
                                            << "f = ((";
    const QString pbpk = exampleFile("ODE_expression.txt");
    const QString aux = exampleFile("ODE_auxiliary_function_expression.txt");
    QTest::newRow("10,000 lines") << pbpk + QString("; a comment line\n").repeated(10000) << aux;
    QString binary;
    QRandomGenerator random(7);
    for (int i = 0; i < 20000; ++i)
        binary += QChar(ushort(random.bounded(1, 0xFFFF)));
    QTest::newRow("binary") << binary << binary.left(500);
    QString equations;
    for (int i = 0; i < 1000; ++i)
        equations += QString("dA%1dt = -k%1*A%1 + k*A%2\n").arg(i).arg((i + 1) % 1000);
    QTest::newRow("1,000 equations") << equations << QString();
    QTest::newRow("1 MB line") << QString("dAdt = ") + QString("-ke*A+k1*B").repeated(100000) + "\ndBdt = B"
                               << QString();
}

void EditorAssistanceTest::badInputStaysResponsive()
{
    QFETCH(QString, ode);
    QFETCH(QString, auxiliary);
    QElapsedTimer timer;
    timer.start();
    setModel(ode, auxiliary);
    qInfo("re-parsed and re-coloured in %lld ms", static_cast<long long>(timer.elapsed()));
    // A bound against hangs, not a speed test (sanitizer builds are slow).
    QVERIFY2(timer.elapsed() < 120000, qPrintable(QString::number(timer.elapsed())));
    QVERIFY(label("lab_variableNames").startsWith("Variables:") && !timerRunning());
    // The typed text stays as it was (binary apart, which the editor itself
    // does not keep as given).
    if (QTest::currentDataTag() != QLatin1String("binary"))
        QCOMPARE(this->ode()->toPlainText(), ode);
}

QTEST_MAIN(EditorAssistanceTest)
#include "test_editor_assistance.moc"
