// The model tables as a modeller edits them: cell checks of the dose,
// simulation dose and observation tables, the parameter specification with
// its generated transformation, and the Step3-2 initial cluster.
#include "engine/EngineSetup.h"
#include "project/ProjectModel.h"
#include "ui/MainWindow.h"
#include "ui/ProjectDocument.h"
#include "ui/steps/DoseEventsStep.h"
#include "ui/steps/ModelEditorStep.h"
#include "ui/steps/ObservationStep.h"
#include "ui/steps/ParameterStep.h"
#include "ui/steps/SimulationStep.h"
#include "ui/tables/TableWidgetFiles.h"
#include "ui/widgets/QTableWidgetWithCopyPaste.h"

#include <QMessageBox>
#include <QPushButton>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QTextEdit>
#include <QTimer>
#include <QtTest>

namespace {

const QString kModelDir = QStringLiteral(AMBREL_EXAMPLES_DIR "/oral-absorption/model/");

// How a rich-text fragment shows in a text edit: two fragments compare equal
// exactly when the pane would show the same text in the same colours.
QString rendered(const QString &fragment)
{
    QTextEdit edit;
    edit.setHtml(fragment);
    return edit.toHtml();
}

QString red(const QString &text)
{
    return "<font color=red> " + text + "</font>";
}

QString refusalBlock(const QString &message)
{
    return "<font color=red>" + message +
           "<br>Parameters are not specified correctly, Ambrel method cannot be run. Check Step 3.</font>";
}

} // namespace

class ModelTablesTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void doseCells();
    void observationCells();
    void specificationRows();
    void generatedTransformation();
    void initialCluster();

private:
    const Workbench &w() const { return m_window->workbench(); }
    QTextEdit *pane() const { return w().errorPane; }
    QTableWidget *specification() const { return w().parameters->specificationTable(); }
    // Sets a cell's text as an edit does (a new item where there is none).
    static void edit(QTableWidget *table, int row, int column, const QString &text)
    {
        if (QTableWidgetItem *item = table->item(row, column))
            item->setText(text);
        else
            table->setItem(row, column, new QTableWidgetItem(text));
    }
    static QColor colour(QTableWidget *table, int row, int column)
    {
        return table->item(row, column)->foreground().color();
    }
    // Re-checks the specification as moving to another cell does.
    void moveInSpecification(int row, int column) const
    {
        specification()->setCurrentCell(-1, -1);
        specification()->setCurrentCell(row, column);
    }

    MainWindow *m_window = nullptr;
};

void ModelTablesTest::init()
{
    m_window = new MainWindow;
    // The load order of a project folder: the model text, the tables, then
    // the specification processed and the transformation texts read back.
    w().modelEditor->odeEditor()->setPlainText(readTextFile(kModelDir + "ODE_expression.txt"));
    readTable(kModelDir + "dose_events.txt", w().doseEvents->table());
    readTable(kModelDir + "parameter_specifications.csv", specification());
    QVERIFY(w().parameters->processSpecification());
    w().parameters->definitionEditor()->setPlainText(readTextFile(kModelDir + "reparaDefinition.txt"));
    w().parameters->inverseEditor()->setPlainText(readTextFile(kModelDir + "reparaInverse.txt"));
    readTable(kModelDir + "observations.txt", w().observations->table());
    w().doseEvents->readDoseEvents();
    w().observations->readObservations();
    QCOMPARE(pane()->toPlainText(), QString());
}

void ModelTablesTest::cleanup()
{
    delete m_window;
    m_window = nullptr;
}

void ModelTablesTest::doseCells()
{
    QTableWidget *doses = w().doseEvents->table();
    // Compartments match case-sensitively; the message lists every state.
    edit(doses, 0, 1, "ag");
    QTRY_COMPARE(pane()->toHtml(), rendered(red("Error in Dosing Table (1th row Compartment):<br>Dosing "
                                                "compartment not found.  It should be selected from the "
                                                "following: Ag  Ac")));
    QCOMPARE(colour(doses, 0, 1), QColor(Qt::red));
    // Fixing the cell clears its message and its colour.
    edit(doses, 0, 1, "Ag");
    QTRY_COMPARE(pane()->toPlainText(), QString());
    QCOMPARE(colour(doses, 0, 1), QColor(Qt::black));

    // -99 sets the compartment; a negative duration is refused only when the
    // model is evaluated.
    for (const char *duration : {"-99", "-1"}) {
        edit(doses, 0, 3, duration);
        QTest::qWait(20); // the check runs once control is back in the event loop
        QCOMPARE(colour(doses, 0, 3), QColor(Qt::black));
        QCOMPARE(pane()->toPlainText(), QString());
    }
    // Expressions are evaluated at the domain midpoints (V: (5 + 100) / 2).
    edit(doses, 0, 2, "V*2");
    QTRY_COMPARE(pane()->toHtml(), rendered("<font color=blue>V*2=105</font>"));

    // The simulation table names itself only in its Duration message.
    QTableWidget *simulation = w().simulation->doseTable();
    const QStringList row = {"0", "Ag", "320", "x"};
    for (int c = 0; c < row.size(); ++c)
        edit(simulation, 0, c, row[c]);
    QTRY_COMPARE(pane()->toHtml(),
                 rendered(red("Error in Simulation Dosing Table (1th row Duration):<br>Could "
                              "not evaluate the tree.")));
    edit(simulation, 0, 3, "0");
    edit(simulation, 0, 2, "y");
    QTRY_COMPARE(pane()->toHtml(),
                 rendered(red("Error in Dosing Table (1th row Dosage):<br>Could not evaluate the tree.")));
}

void ModelTablesTest::observationCells()
{
    QTableWidget *observations = w().observations->table();
    // Row numbers in the messages are 1-based.
    edit(observations, 3, 2, "5,1");
    const QString value4 =
            red("Error in Observation Table (4th row Value):<br> Expression could not be understood.");
    QTRY_COMPARE(pane()->toHtml(), rendered(value4));
    QCOMPARE(colour(observations, 3, 2), QColor(Qt::red));
    QCOMPARE(colour(observations, 3, 0), QColor(Qt::black));

    // The pane lists every current problem in table order, after the edited
    // cell's note, so fixing one cell clears only its own message.
    edit(observations, 1, 0, "two");
    const QString time2 =
            red("Error in Observation Table (2th row Time):<br> Expression could not be understood.");
    QTRY_COMPARE(pane()->toHtml(), rendered(time2 + "<br>" + value4));
    edit(observations, 1, 0, "2*3");
    QTRY_COMPARE(pane()->toHtml(), rendered("<font color=blue>2*3=6</font><br>" + value4));
    QCOMPARE(colour(observations, 1, 0), QColor(Qt::black));
    edit(observations, 4, 1, "Ac/W");
    QTRY_VERIFY(pane()->toPlainText().contains("Error in Observation Table (5th row Compartment):"));
    QCOMPARE(colour(observations, 4, 1), QColor(Qt::red));
    edit(observations, 4, 1, "Ac/V");
    edit(observations, 3, 2, "5.1");
    QTRY_COMPARE(pane()->toPlainText(), QString());
}

void ModelTablesTest::specificationRows()
{
    QTableWidget *table = specification();
    // A new parameter F between CL and V: the rows follow the names.
    w().modelEditor->odeEditor()->setPlainText("dAgdt = -ka*Ag\ndAcdt = F*ka*Ag - CL/V*Ac");
    w().modelEditor->odeTimer()->stop();
    w().parameters->followParameterNames();
    QCOMPARE(table->verticalHeaderItem(1)->text(), QString("F"));
    QCOMPARE(tableToStringMatrix(table), StringMatrix({{"0.5", "20", "0", "100"},
                                                       {"", "", "0", ""},
                                                       {"5", "100", "0", "500"},
                                                       {"0.1", "5", "0", "20"}}));
    moveInSpecification(0, 0);
    QCOMPARE(pane()->toHtml(),
             rendered(refusalBlock("Parameter F's lowerbound of the domain of interest is not defined.<br>"
                                   "ParameterF's upperbound of the domain of interest is not defined.")));
    QCOMPARE(colour(table, 1, 2), QColor(Qt::black));
    // A text with errors leaves the rows alone.
    w().modelEditor->odeEditor()->setPlainText("dAgdt = -ka*Ag\ndAgdt = CL");
    w().modelEditor->odeTimer()->stop();
    w().parameters->followParameterNames();
    QCOMPARE(table->rowCount(), 4);

    // Removing F again keeps the other rows.
    w().modelEditor->odeEditor()->setPlainText(readTextFile(kModelDir + "ODE_expression.txt"));
    w().parameters->followParameterNames();
    QCOMPARE(tableToStringMatrix(table).value(2), QStringList({"0.1", "5", "0", "20"}));
    edit(table, 0, 2, "2");
    moveInSpecification(1, 0);
    QCOMPARE(pane()->toHtml(), rendered(refusalBlock("Parameter CL's domain of interest is not within the "
                                                     "theoretical bound.")));
    // "nb" is no bound; other text in a bound is unreadable and red.
    edit(table, 0, 2, "nb");
    edit(table, 2, 3, "lots");
    moveInSpecification(0, 0);
    QCOMPARE(pane()->toPlainText(), QString());
    QCOMPARE(colour(table, 0, 2), QColor(Qt::black));
    QCOMPARE(colour(table, 2, 3), QColor(Qt::red));
}

void ModelTablesTest::generatedTransformation()
{
    QTextEdit *g = w().parameters->definitionEditor();
    QTextEdit *inverse = w().parameters->inverseEditor();
    // Hand edits survive a re-check while the theoretical bounds stay.
    const QString handMade = "CL=100/(1+EXP(0-x1))\nV=500*EXP(x2)/(1+EXP(x2))\nka=20*EXP(x3)/(1+EXP(x3))";
    g->setPlainText(handMade);
    edit(specification(), 1, 0, "6");
    moveInSpecification(1, 1);
    QCOMPARE(g->toPlainText(), handMade);
    QCOMPARE(pane()->toPlainText(), QString());

    // A changed bound regenerates both texts (CL keeps its bounds 0 and 100);
    // a fixed parameter has no search variable and no cluster column.
    edit(specification(), 2, 3, "");
    edit(specification(), 1, 0, "50");
    edit(specification(), 1, 1, "50");
    moveInSpecification(0, 0);
    QCOMPARE(g->toPlainText(), QString("CL=100*EXP(x1)/(1+EXP(x1))\nV=50\nka=10^(x2)"));
    QCOMPARE(inverse->toPlainText(), QString("x1=LOG(CL/(100-CL))\nx2=LOG10(ka)"));
    QTableWidget *cluster = w().parameters->initialClusterTable();
    QCOMPARE(cluster->columnCount(), 2);
    QCOMPARE(cluster->horizontalHeaderItem(1)->text(), QString("x2 (ka)"));

    // Edits of the texts are re-parsed.
    g->setPlainText("CL=100*EXP(x1)/(1+EXP(x1))\nka=10^(x2)");
    QCOMPARE(pane()->toHtml(), rendered("<font color=red>ParameterV is not defined.</font>"));
    g->setPlainText("CL=100*EXP(x1)/(1+EXP(x1))\nV=50\nka=10^(x2)");
    inverse->setPlainText("x1=LOG(CL/(100-CL))");
    QCOMPARE(pane()->toHtml(), rendered("<font color=red>x2 is not given. (It is user responsibility to "
                                        "provide inverse of g.)</font>"));
}

void ModelTablesTest::initialCluster()
{
    QTableWidget *cluster = w().parameters->initialClusterTable();
    w().parameters->clusterSizeBox()->setValue(40);
    m_window->findChild<QPushButton *>("pushButton_4")->click();
    QCOMPARE(cluster->rowCount(), 40);
    QCOMPARE(cluster->horizontalHeaderItem(0)->text(), QString("x1 (CL)"));
    const SearchDomain domain = projectSearchDomain(w().document->model());
    const DoubleMatrix points = w().parameters->initialCluster();
    for (int k = 0; k < 3; ++k) {
        double low = points[0][k], high = points[0][k];
        for (const QVector<double> &point : points) {
            low = std::min(low, point[k]);
            high = std::max(high, point[k]);
        }
        // Inside the domain (cells hold 6 significant digits) and spread over it.
        QVERIFY(low >= domain.lower[k] - 1e-5 && high <= domain.upper[k] + 1e-5);
        QVERIFY(high - low > 0.5 * (domain.upper[k] - domain.lower[k]));
    }
    // The run gets a generated cluster only when the table is empty.
    QCOMPARE(w().parameters->ensureInitialCluster(), points);
    cluster->setRowCount(0);
    QCOMPARE(w().parameters->ensureInitialCluster().size(), 40);

    // A file with a row of the wrong length is refused with the modal box.
    QTemporaryDir dir;
    QFile file(dir.filePath("x.csv"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("0.1,0.2,0.3\n-1,0\n");
    file.close();
    QString box;
    QTimer::singleShot(0, [&] {
        if (auto *message = qobject_cast<QMessageBox *>(QApplication::activeModalWidget())) {
            box = message->windowTitle() + ": " + message->text();
            message->accept();
        }
    });
    w().parameters->importInitialClusterFrom(file.fileName());
    QCOMPARE(box, QString("Wrong Size: The imported X values does not have correct number of columns.  The "
                          "number of column of the CSV file should be the same as the number of unfixed "
                          "parameters."));
    QCOMPARE(cluster->rowCount(), 40);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("0.1,0.2,0.3\n-1,0,1\n");
    file.close();
    w().parameters->importInitialClusterFrom(file.fileName());
    QCOMPARE(w().parameters->initialCluster(), DoubleMatrix({{0.1, 0.2, 0.3}, {-1, 0, 1}}));
    QCOMPARE(w().parameters->clusterSizeBox()->value(), 2);

    // A domain reaching the theoretical bound 0 has no finite image.
    edit(specification(), 0, 0, "0");
    m_window->findChild<QPushButton *>("pushButton_4")->click();
    QVERIFY(pane()->toPlainText().startsWith(
            "Parameters cannot be generated: g inverse does not map the domain "
            "of interest of x1 (CL) to finite values."));
    QCOMPARE(cluster->rowCount(), 2);
}

QTEST_MAIN(ModelTablesTest)
#include "test_model_tables.moc"
