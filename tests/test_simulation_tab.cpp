#include "ui/MainWindow.h"
#include "ui/ProjectDocument.h"
#include "ui/messages/ProblemHtml.h"
#include "ui/steps/RunControl.h"
#include "ui/steps/RunStep.h"
#include "ui/steps/SimulationStep.h"
#include "ui/tables/TableWidgetFiles.h"
#include "ui/widgets/QTableWidgetWithCopyPaste.h"

#include "ode/Simulation.h"
#include "project/ProjectModel.h"

#include <QApplication>
#include <QChart>
#include <QChartView>
#include <QCheckBox>
#include <QFileDialog>
#include <QLineEdit>
#include <QLineSeries>
#include <QLogValueAxis>
#include <QPushButton>
#include <QScatterSeries>
#include <QTabWidget>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTextEdit>
#include <QTimer>
#include <QValueAxis>
#include <QtTest>

#include <algorithm>

using namespace QtCharts;

namespace {

const QString oralFolder = QStringLiteral(AMBREL_EXAMPLES_DIR "/oral-absorption");

QString fileText(const QString &path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly | QIODevice::Text);
    return QString::fromUtf8(file.readAll());
}

QStringList headers(const QTableWidget *table)
{
    QStringList texts;
    for (int c = 0; c < table->columnCount(); ++c)
        texts << (table->horizontalHeaderItem(c) ? table->horizontalHeaderItem(c)->text() : QString());
    return texts;
}

struct FakeRunControl : RunControl {
    bool running = false;
    bool isRunning() const override { return running; }
    void requestAbort() override {}
    void start(bool) override {}
    void iterationResult(const compResult &) override {}
    void completed() override {}
};

// Parameter sets of the oral example, in its parameter order CL, V, ka.
const DoubleMatrix oralSets = {{5, 50, 1.2}, {8, 60, 0.8}, {3, 40, 2},
                               {6, 55, 1},   {4, 45, 1.5}, {7, 52, 0.9}};

} // namespace

class SimulationTabTest : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void timePointsFromTheLineEdit();
    void oralSimulationMatchesTheModelEvaluation();
    void logAxisAndRedraw();
    void csvFileThroughTheSaveDialog();
    void messagesOfBadInput();
    void parameterCellsAreCheckedWhenEdited();
    void manySetsRunOffTheGuiThread();
    void tableFollowsTheResultOnceARunHasEnded();

private:
    // The oral example in the window's editors and tables, as a load shows it.
    void loadOralExample();
    // Parameter sets typed into the table (its columns named by opening its tab).
    void enterParameterSets(const DoubleMatrix &sets);
    void typeInto(QLineEdit *edit, const QString &text);
    // Loads the example and simulates the expression over 0:1:24 with the sets.
    void simulate(const DoubleMatrix &sets, const QString &expression = QStringLiteral("Ac/V"));
    // Presses "Compute simulation" with the expression and the times.
    void compute(const QString &expression, const QString &times = QStringLiteral("0:1:24"));
    QString paneText() const { return m_window->workbench().errorPane->toPlainText(); }
    QList<QLineSeries *> lines() const;

    MainWindow *m_window = nullptr;
    SimulationStep *m_step = nullptr;
    ProjectModel m_oral;
};

void SimulationTabTest::init()
{
    m_window = new MainWindow;
    m_step = m_window->workbench().simulation;
    m_oral = loadProjectModel(oralFolder);
    QVERIFY(m_oral.isValid());
}

void SimulationTabTest::cleanup()
{
    delete m_window;
    m_window = nullptr;
}

void SimulationTabTest::loadOralExample()
{
    const QString model = oralFolder + "/model/";
    m_window->findChild<QTextEdit *>("textEdit_ODEExpression")
            ->setPlainText(fileText(model + "ODE_expression.txt"));
    readTable(model + "parameter_specifications.csv",
              m_window->findChild<QTableWidget *>("tableWidget_parametersSpec"));
    readTable(model + "dose_events.txt", m_window->findChild<QTableWidget *>("tableWidget_doseEvents"));
    readTable(model + "observations.txt", m_window->findChild<QTableWidget *>("tableWidget_observations"));
    readTable(model + "dose_events.txt", m_step->doseTable());
}

void SimulationTabTest::enterParameterSets(const DoubleMatrix &sets)
{
    m_step->tabs()->setCurrentIndex(0);
    QTableWidget *table = m_step->parameterTable();
    QCOMPARE(headers(table), QStringList({"CL", "V", "ka"}));
    table->setRowCount(sets.size());
    for (int r = 0; r < sets.size(); ++r)
        for (int c = 0; c < sets[r].size(); ++c)
            table->setItem(r, c, new QTableWidgetItem(QString::number(sets[r][c])));
}

void SimulationTabTest::typeInto(QLineEdit *edit, const QString &text)
{
    edit->clear();
    QTest::keyClicks(edit, text);
    QTest::keyClick(edit, Qt::Key_Return); // finishes the editing
}

void SimulationTabTest::simulate(const DoubleMatrix &sets, const QString &expression)
{
    loadOralExample();
    enterParameterSets(sets);
    compute(expression);
}

void SimulationTabTest::compute(const QString &expression, const QString &times)
{
    typeInto(m_step->variableEdit(), expression);
    typeInto(m_step->timePointsEdit(), times);
    QSignalSpy finished(m_step, &SimulationStep::simulationFinished);
    m_window->findChild<QPushButton *>("pushButton_computeSimulation")->click();
    QVERIFY(finished.count() == 1 || finished.wait(20000));
}

QList<QLineSeries *> SimulationTabTest::lines() const
{
    QList<QLineSeries *> found;
    for (QAbstractSeries *series : m_step->chartView()->chart()->series())
        if (series->type() == QAbstractSeries::SeriesTypeLine)
            found << static_cast<QLineSeries *>(series);
    return found;
}

void SimulationTabTest::timePointsFromTheLineEdit()
{
    const QVector<QPair<QString, QVector<double>>> cases = {
            {"0:1:10", {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},
            {"0:3:10", {0, 3, 6, 9, 12}}, // rounded up: the end is overshot
            {"10:-2:0", {0, 2, 4, 6, 8, 10}},
            {"5,1,3,3", {1, 3, 5}},
            {"1,1.0", {1, 1}}, // duplicates are judged by their text
            {"1,abc,2,nan", {1, 2}},
            {"0:0:10", {}},
            {"0:1:-5", {}},
    };
    QLineEdit *edit = m_step->timePointsEdit();
    for (const auto &[text, expected] : cases) {
        typeInto(edit, text);
        QVERIFY2(m_step->timePoints() == expected, qPrintable(text));
    }
    QVERIFY(paneText().contains("No simulation time points in \"0:1:-5\""));
    // An end that is not finite has its own message, as in the batch tool.
    typeInto(edit, "0:1:inf");
    QVERIFY(m_step->timePoints().isEmpty());
    QVERIFY(paneText().contains("hold \"inf\", which is not a finite number"));

    // A range of a billion points is refused before anything is allocated.
    typeInto(edit, "0:0.000001:1000");
    QVERIFY(m_step->timePoints().isEmpty());
    QVERIFY(paneText().contains("would make more than 1000000 points"));
    typeInto(edit, "0:1:999999"); // the largest range accepted
    QCOMPARE(m_step->timePoints().size(), 1000000);
}

void SimulationTabTest::oralSimulationMatchesTheModelEvaluation()
{
    simulate(oralSets.mid(0, 2));
    const QVector<double> times = parseSimulationTimePoints("0:1:24");
    QCOMPARE(m_step->result().times, times);
    QCOMPARE(m_step->result().values.size(), 2);
    QVERIFY(m_step->saveButton()->isEnabled());
    QCOMPARE(paneText(), QString());

    // One line per set, named after its table row, equal to the model
    // evaluation of that set.
    const QList<QLineSeries *> series = lines();
    QCOMPARE(series.size(), 2);
    for (int set = 0; set < 2; ++set) {
        const SimulationResult direct =
                ::simulate(m_oral.system, m_oral.doseEvents, times, oralSets[set], "Ac/V", false, nullptr);
        QVERIFY(direct.problems.isEmpty());
        QCOMPARE(m_step->result().values[set], direct.values);
        QCOMPARE(series[set]->name(), QString("row %1").arg(set + 1));
        const QVector<QPointF> points = series[set]->pointsVector();
        QCOMPARE(points.size(), times.size());
        for (int i = 0; i < times.size(); ++i)
            QCOMPARE(points[i], QPointF(times[i], direct.values[i]));
    }

    // "Ac/V" is also the observations' variable: they are drawn on the same axes.
    QList<QScatterSeries *> scatter;
    for (QAbstractSeries *s : m_step->chartView()->chart()->series())
        if (auto *points = qobject_cast<QScatterSeries *>(s))
            scatter << points;
    QCOMPARE(scatter.size(), 1);
    QCOMPARE(scatter[0]->count(), m_oral.observations.size());
    QCOMPARE(scatter[0]->at(0), QPointF(0.25, 2.04647));
    QCOMPARE(scatter[0]->at(12), QPointF(24, 0.791723));

    // Axes: time over the time points, values over the extremes times 1.1.
    QChart *chart = m_step->chartView()->chart();
    auto *x = qobject_cast<QValueAxis *>(chart->axes(Qt::Horizontal).value(0));
    auto *y = qobject_cast<QValueAxis *>(chart->axes(Qt::Vertical).value(0));
    QVERIFY(x && y);
    QCOMPARE(x->titleText(), QString("Time"));
    QCOMPARE(x->labelFormat(), QString("%g"));
    QCOMPARE(x->min(), 0.0);
    QCOMPARE(x->max(), 24.0);
    double highest = 6.35356; // the highest observation
    for (const QVector<double> &values : m_step->result().values)
        highest = std::max(highest, *std::max_element(values.begin(), values.end()));
    QCOMPARE(y->min(), 0.0); // the value at t = 0
    QCOMPARE(y->max(), highest * 1.1);
}

void SimulationTabTest::logAxisAndRedraw()
{
    simulate(oralSets.mid(0, 2));
    QChart *chart = m_step->chartView()->chart();
    m_step->logScaleBox()->setChecked(true);
    auto *y = qobject_cast<QLogValueAxis *>(chart->axes(Qt::Vertical).value(0));
    QVERIFY(y);
    QCOMPARE(y->base(), 10.0);

    // The value 0 at t = 0 cannot be drawn on a log axis; the smallest
    // positive value (the last observation or a last simulated value) sets
    // the lower end, both ends times 1.1.
    double lowest = 0.791723, highest = 6.35356; // the extreme observations
    for (const QVector<double> &values : m_step->result().values)
        for (double v : values) {
            if (v > 0)
                lowest = std::min(lowest, v);
            highest = std::max(highest, v);
        }
    QCOMPARE(y->min(), lowest * 1.1);
    QCOMPARE(y->max(), highest * 1.1);
    QCOMPARE(lines().size(), 2);
    QCOMPARE(lines()[0]->count(), 24); // without t = 0

    m_step->logScaleBox()->setChecked(false);
    QVERIFY(qobject_cast<QValueAxis *>(chart->axes(Qt::Vertical).value(0)));
    QCOMPARE(lines()[0]->count(), 25);
}

void SimulationTabTest::csvFileThroughTheSaveDialog()
{
    // Without a result the button is disabled and the slot opens nothing.
    QPushButton *save = m_step->saveButton();
    QVERIFY(!save->isEnabled());
    bool dialogOpened = false;
    QTimer watch;
    connect(&watch, &QTimer::timeout,
            [&] { dialogOpened = dialogOpened || QApplication::activeModalWidget(); });
    watch.start(10);
    m_step->saveAsCsv();
    QTest::qWait(50);
    QVERIFY(!dialogOpened);
    watch.stop();

    simulate(oralSets.mid(0, 2), "Ac");
    QVERIFY(save->isEnabled());
    QTemporaryDir dir;
    const QString path = dir.filePath("simulation.csv");
    QString title, proposed;
    QStringList filters;
    QTimer::singleShot(0, [&] {
        // Qt's own dialog (no platform theme in the tests) can be driven here.
        QTRY_VERIFY(qobject_cast<QFileDialog *>(QApplication::activeModalWidget()));
        auto *dialog = qobject_cast<QFileDialog *>(QApplication::activeModalWidget());
        title = dialog->windowTitle();
        filters = dialog->nameFilters();
        proposed = QFileInfo(dialog->selectedFiles().value(0)).fileName();
        dialog->selectFile(path);
        static_cast<QDialog *>(dialog)->accept();
    });
    save->click();
    QCOMPARE(title, QString("Save .csv file"));
    QCOMPARE(filters, QStringList({"csv file (*.csv)", "All Files (*)"}));
    QCOMPARE(proposed, QString("AMM_Ac_compartment_simulation_plot.csv"));

    // Labelled columns: an empty label, "time" and the set numbers; then per
    // time point an empty label and the values with 6 significant digits.
    const QStringList lines = fileText(path).split('\n');
    QCOMPARE(lines.size(), 25 + 2); // header, 25 rows, the final line end
    QCOMPARE(lines[0], QString(",time,1,2"));
    QCOMPARE(lines.last(), QString());
    const QVector<double> &first = m_step->result().values[0], &second = m_step->result().values[1];
    for (int t = 0; t <= 24; ++t)
        QCOMPARE(lines[t + 1],
                 QString(",%1,%2,%3")
                         .arg(t)
                         .arg(QString::number(first[t], 'g', 6), QString::number(second[t], 'g', 6)));
}

void SimulationTabTest::messagesOfBadInput()
{
    // A name the model does not know: the parser's message, as the system words it.
    simulate(oralSets.mid(0, 1), "Ac/W");
    const Problems unknown = ::simulate(m_oral.system, {}, {}, {}, "Ac/W", false, nullptr).problems;
    QCOMPARE(unknown.size(), 1);
    QVERIFY(problemHtml(unknown[0])
                    .startsWith("<font color=red> Error in simulation valiable expression (Ac/W): "));
    QVERIFY(problemHtml(unknown[0]).endsWith("</font>"));
    QCOMPARE(paneText(), unknown[0].text);
    QVERIFY(m_step->result().values.isEmpty());
    QVERIFY(!m_step->saveButton()->isEnabled());

    // Values that come out NaN keep the result and say so.
    typeInto(m_step->variableEdit(), "LOG10(Ac-1000)");
    m_step->computeSimulation();
    QCOMPARE(paneText(), QString("Could not evaluate the simulation valiable expression (LOG10(Ac-1000))"));
    QCOMPARE(m_step->result().values.size(), 1);
    QVERIFY(std::isnan(m_step->result().values[0][3]));

    // No parameter set, no time point: each says what is missing, together.
    m_step->parameterTable()->clearContents();
    typeInto(m_step->timePointsEdit(), "abc");
    QVERIFY(paneText().contains("No simulation time points in \"abc\""));
    typeInto(m_step->variableEdit(), "Ac");
    m_step->computeSimulation();
    QVERIFY(paneText().contains("No simulation time points in \"abc\""));
    QVERIFY(paneText().contains("The simulation parameter table holds no parameter set"));
    QVERIFY(m_step->result().values.isEmpty());
    QCOMPARE(lines().size(), 0);

    // An unknown compartment in the simulation doses stops the computation.
    typeInto(m_step->timePointsEdit(), "0:1:2");
    enterParameterSets(oralSets.mid(0, 1));
    m_step->doseTable()->setItem(0, 1, new QTableWidgetItem("ag"));
    m_step->computeSimulation();
    QVERIFY(paneText().contains("Dosing compartment not found."));
    QVERIFY(m_step->result().values.isEmpty());

    // Without doses the simulation runs, and the pane says that it had none.
    m_step->doseTable()->clearContents();
    m_step->computeSimulation();
    QCOMPARE(m_step->result().values, DoubleMatrix({{0, 0, 0}}));
    QVERIFY(paneText().startsWith("No dose events in the simulation dose table"));
}

void SimulationTabTest::parameterCellsAreCheckedWhenEdited()
{
    loadOralExample();
    enterParameterSets(oralSets.mid(0, 2));
    QTableWidget *table = m_step->parameterTable();
    table->item(1, 2)->setText("abc");
    QCOMPARE(table->item(1, 2)->foreground().color(), QColor(Qt::red));
    QCOMPARE(paneText(),
             QString("Error in Simulation Parameter Table \nCould not evaluate the simulation parameter "
                     "expression.\nrow 2, ka: \"abc\""));

    // An expression is evaluated; the error goes once the table is clean.
    table->item(1, 2)->setText("2*0.4");
    QVERIFY(!table->item(1, 2)->data(Qt::ForegroundRole).isValid());
    QCOMPARE(paneText(), QString("2*0.4=0.8"));

    // The computation reads it as its value and refuses a half-filled row.
    compute("Ac/V");
    QCOMPARE(m_step->result().values.size(), 2);
    const SimulationResult direct =
            ::simulate(m_oral.system, m_oral.doseEvents, parseSimulationTimePoints("0:1:24"), {8, 60, 0.8},
                       "Ac/V", false, nullptr);
    QCOMPARE(m_step->result().values[1], direct.values);
    table->setRowCount(3);
    table->setItem(2, 0, new QTableWidgetItem("1"));
    QCOMPARE(paneText(), QString("")); // a row being typed is no error yet
    m_step->computeSimulation();
    QVERIFY(paneText().contains("Error in Simulation Parameter Table"));
    QVERIFY(paneText().contains("row 3, V: \"\""));
    QVERIFY(m_step->result().values.isEmpty());
}

void SimulationTabTest::manySetsRunOffTheGuiThread()
{
    loadOralExample();
    enterParameterSets(oralSets);
    typeInto(m_step->variableEdit(), "Ac/V");
    typeInto(m_step->timePointsEdit(), "0:0.5:24");
    auto *compute = m_window->findChild<QPushButton *>("pushButton_computeSimulation");
    QSignalSpy finished(m_step, &SimulationStep::simulationFinished);
    compute->click();
    // The results can only arrive through the event loop: until then the
    // button says that it is working.
    QVERIFY(m_step->isComputing());
    QCOMPARE(compute->text(), QString("Computing..."));
    QVERIFY(!compute->isEnabled());
    compute->click(); // ignored while computing
    QVERIFY(finished.wait(20000));
    QCOMPARE(finished.count(), 1);
    QCOMPARE(compute->text(), QString("Compute simulation"));
    QVERIFY(compute->isEnabled());
    QCOMPARE(m_step->result().values.size(), oralSets.size());
    QCOMPARE(lines().size(), oralSets.size());
    const QVector<double> times = parseSimulationTimePoints("0:0.5:24");
    for (int set = 0; set < oralSets.size(); ++set)
        QCOMPARE(m_step->result().values[set],
                 ::simulate(m_oral.system, m_oral.doseEvents, times, oralSets[set], "Ac/V", false, nullptr)
                         .values);
}

void SimulationTabTest::tableFollowsTheResultOnceARunHasEnded()
{
    loadOralExample();
    // A result of 12 points; point 5 failed and point 7 has a non-finite parameter.
    compResult result;
    DoubleMatrix parameters;
    QVector<double> ssr;
    for (int i = 0; i < 12; ++i) {
        parameters << QVector<double>{1.0 + i, 50, 1};
        ssr << 12.0 - i; // the last point is the best
    }
    ssr[5] = std::numeric_limits<double>::quiet_NaN();
    parameters[7][1] = std::numeric_limits<double>::infinity();
    result.X = {parameters};
    result.Parameter = {parameters};
    result.SSR = {ssr};
    result.updateSortIndex();

    FakeRunControl control;
    control.running = true;
    m_window->workbench().run->setRunControl(&control);
    enterParameterSets(oralSets.mid(0, 1));
    m_window->workbench().document->setResult(result); // an iteration: the user's set stays
    QTableWidget *table = m_step->parameterTable();
    QCOMPARE(table->rowCount(), 1);

    control.running = false;
    m_window->workbench().setModelEditable(true); // the run has ended
    QCOMPARE(table->rowCount(), SimulationStep::offeredParameterSets);
    QCOMPARE(headers(table), QStringList({"CL", "V", "ka"}));
    const QStringList firstColumn = [&] {
        QStringList texts;
        for (int r = 0; r < table->rowCount(); ++r)
            texts << table->item(r, 0)->text();
        return texts;
    }();
    // Best SSR first; the failed point and the infinite one are left out.
    QCOMPARE(firstColumn, QStringList({"12", "11", "10", "9", "7", "5", "4", "3", "2", "1"}));
    QCOMPARE(paneText(), QString());
    m_window->workbench().run->setRunControl(nullptr);
}

QTEST_MAIN(SimulationTabTest)
#include "test_simulation_tab.moc"
