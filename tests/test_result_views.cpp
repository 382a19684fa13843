#include "analysis/ClusterStatistics.h"
#include "analysis/PointSelection.h"
#include "engine/EngineSetup.h"
#include "engine/ambrel_method.h"
#include "project/ProjectModel.h"
#include "project/TableFiles.h"
#include "ui/MainWindow.h"
#include "ui/ProjectDocument.h"
#include "ui/results/ChartGrid.h"
#include "ui/results/ChartPanel.h"
#include "ui/results/ConvergenceView.h"
#include "ui/results/ObservationSimulationView.h"
#include "ui/results/ParameterPairsView.h"
#include "ui/results/ParameterRangeView.h"
#include "ui/results/ParameterView.h"
#include "ui/results/SsrParameterView.h"
#include "ui/steps/ResultsStep.h"
#include "ui/steps/SimulationStep.h"
#include "ui/tables/TableWidgetFiles.h"

#include <QChart>
#include <QChartView>
#include <QComboBox>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QTabWidget>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTextEdit>
#include <QTextStream>
#include <QtTest>

#include <cmath>
#include <limits>
#include <random>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const QString exampleFolder = QStringLiteral(AMBREL_EXAMPLES_DIR "/oral-absorption");

QString fileText(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    return QTextStream(&file).readAll();
}

// Puts the example's model files into the window's editors and tables.
void showModel(MainWindow &window)
{
    const QString model = exampleFolder + "/model/";
    const auto text = [&](const char *name, const char *file) {
        window.findChild<QTextEdit *>(name)->setPlainText(fileText(model + file));
    };
    text("textEdit_ODEExpression", "ODE_expression.txt");
    text("textEdit_auxFunction", "ODE_auxiliary_function_expression.txt");
    text("textEdit_paraDefinition", "reparaDefinition.txt");
    text("textEdit_paraDefInverse", "reparaInverse.txt");
    readTable(model + "dose_events.txt", window.findChild<QTableWidget *>("tableWidget_doseEvents"));
    readTable(model + "parameter_specifications.csv",
              window.findChild<QTableWidget *>("tableWidget_parametersSpec"));
    readTable(model + "observations.txt", window.findChild<QTableWidget *>("tableWidget_observations"));
}

// A short run of the example: 40 points, 8 + 2 iterations.
compResult runExample()
{
    const ProjectModel model = loadProjectModel(exampleFolder);
    ambrel_method engine;
    RunSettings settings;
    settings.stage1Iterations = 8;
    settings.stage2Iterations = 2;
    settings.integratorMessages = nullptr;
    configureEngine(engine, model, settings);
    std::mt19937_64 generator(7);
    engine.result.X = {sampleInitialCluster(projectSearchDomain(model), 40, generator)};
    engine.run();
    return engine.result;
}

// A record of two groups of 20 points far apart in three coordinates, one
// iteration; the names do not match the example, so they are numbered.
compResult twoGroupRecord()
{
    compResult record;
    DoubleMatrix X;
    QVector<double> ssr;
    for (int i = 0; i < 40; ++i) {
        const double shift = i % 2 ? 5 : 0;
        X << QVector<double>{shift + 0.01 * i, -shift + 0.02 * std::sin(i), 1 + shift};
        ssr << 1 + 0.1 * i;
    }
    record.X = {X};
    record.Parameter = {X};
    record.SSR = {ssr};
    record.Y = {DoubleMatrix(40, QVector<double>{1.0, 2.0})};
    return record;
}

QVector<double> ys(const QVector<QPointF> &points)
{
    QVector<double> values;
    for (const QPointF &p : points)
        values << p.y();
    return values;
}

} // namespace

class ResultViewsTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void iterationAndTolerance();
    void refreshRedrawsOnlyTheCurrentTab();
    void observationSimulationSeries();
    void parameterViews();
    void correlationTable();
    void csvExports();
    void grouping();
    void jacobianGivesStandardErrors();
    void convergenceTab();
    void everyTabSurvivesBadRecords();

private:
    ResultsStep *results() const { return m_window->workbench().results; }
    void setRecord(const compResult &record) { m_window->workbench().document->setResult(record); }
    void showTab(const QString &title)
    {
        results()->tabs()->setCurrentIndex(ResultsStep::tabTitles().indexOf(title));
    }
    int lastIteration() const { return m_record.SSR.size() - 1; }
    // The selection the window should make at the last iteration.
    PointSelection expectedSelection(int percentile) const
    {
        return selectByPercentile(m_record.SSR.last(), percentile);
    }

    compResult m_record;
    MainWindow *m_window = nullptr;
};

void ResultViewsTest::initTestCase()
{
    m_record = runExample();
    QCOMPARE(m_record.SSR.size(), 10);
    QVERIFY(!std::isnan(m_record.SSR.last()[m_record.sortIndex.first()]));
}

void ResultViewsTest::init()
{
    m_window = new MainWindow;
    showModel(*m_window);
    QVERIFY(m_window->workbench().document->model().isValid());
}

void ResultViewsTest::cleanup()
{
    delete m_window;
    m_window = nullptr;
}

void ResultViewsTest::iterationAndTolerance()
{
    setRecord(m_record);
    QCOMPARE(results()->iterationBox()->maximum(), lastIteration());
    QCOMPARE(results()->iterationBox()->value(), lastIteration());
    QCOMPARE(results()->shownIteration(), lastIteration());

    results()->percentileBox()->setValue(50);
    // n = 40: position 19 of the ascending finite SSR values.
    QVector<double> sorted = m_record.SSR.last();
    std::sort(sorted.begin(), sorted.end());
    QCOMPARE(results()->toleranceLabel()->text(),
             "Display tolerence: " + QString::number(sorted[19], 'g', 6));
    QCOMPARE(results()->selection().points.size(), 20);

    results()->percentileBox()->setValue(0);
    QCOMPARE(results()->toleranceLabel()->text(), QString("Display tolerence: Inf/NaN"));
    QCOMPARE(results()->selection().points.size(), 40);

    // An earlier iteration has its own list; a shorter record moves the
    // iteration back onto its last one.
    results()->percentileBox()->setValue(25);
    results()->iterationBox()->setValue(0);
    QCOMPARE(results()->selection().points, selectByPercentile(m_record.SSR.first(), 25).points);
    compResult shorter = m_record;
    shorter.truncateHistories(3);
    setRecord(shorter);
    QCOMPARE(results()->iterationBox()->value(), 2);
}

void ResultViewsTest::refreshRedrawsOnlyTheCurrentTab()
{
    const QStringList titles = ResultsStep::tabTitles();
    const auto counts = [&] {
        QVector<int> draws;
        for (const QString &title : titles)
            draws << results()->view(title)->drawCount();
        return draws;
    };
    for (const QString &title : titles.mid(0, 5)) {
        showTab(title);
        const QVector<int> before = counts();
        setRecord(m_record);
        results()->percentileBox()->setValue(results()->percentileBox()->value() == 60 ? 70 : 60);
        const QVector<int> after = counts();
        for (int t = 0; t < titles.size(); ++t)
            QCOMPARE(after[t] - before[t], titles[t] == title ? 2 : 0);
    }
    // Variable Variabilities is not among the refreshed tabs.
    showTab("Variable Variabilities");
    const QVector<int> before = counts();
    setRecord(m_record);
    results()->percentileBox()->setValue(40);
    QCOMPARE(counts(), before);
}

void ResultViewsTest::observationSimulationSeries()
{
    setRecord(m_record);
    results()->percentileBox()->setValue(25); // 10 points: drawn as lines
    auto *view = static_cast<ObservationSimulationView *>(results()->view("Observation-Simulation"));
    const ProjectModel &model = m_window->workbench().document->model();
    const int best = results()->selection().best;
    QCOMPARE(best, expectedSelection(25).best);

    const QVector<QPointF> observed = view->timeCourse()->points("observed0");
    const QVector<QPointF> predicted = view->observedPredicted()->points("best0");
    QCOMPARE(observed.size(), model.observations.size());
    for (int j = 0; j < observed.size(); ++j) {
        QCOMPARE(observed[j], QPointF(model.observations[j].time, model.observedValues[j]));
        QCOMPARE(predicted[j], QPointF(model.observedValues[j], m_record.Y.last()[best][j]));
    }
    // The best point as a smooth curve from time 0, through its outputs.
    const QVector<QPointF> curve = view->timeCourse()->points("curve0");
    QVERIFY(curve.size() >= ObservationSimulationView::curvePoints);
    QCOMPARE(curve.first().x(), 0.0);
    QVERIFY(!view->timeCourse()->isShown("best0"));
    for (int j = 0; j < observed.size(); ++j) {
        const auto at = std::find_if(curve.begin(), curve.end(),
                                     [&](const QPointF &p) { return p.x() == model.observations[j].time; });
        QVERIFY(at != curve.end());
        QVERIFY(std::abs(at->y() - m_record.Y.last()[best][j]) < 1e-3 * std::abs(at->y()));
    }
    for (int s = 1; s < 10; ++s)
        QVERIFY(view->timeCourse()->isShown(QString("line0_%1").arg(s)));
    QVERIFY(!view->timeCourse()->isShown("line0_10"));
    QVERIFY(!view->timeCourse()->isShown("band0"));

    // Many points: one band instead of a line each.
    results()->percentileBox()->setValue(100);
    QVERIFY(view->timeCourse()->isShown("band0"));
    QVERIFY(!view->timeCourse()->isShown("line0_1"));

    const QVector<QPointF> identity = view->observedPredicted()->points("identity");
    QCOMPARE(identity.size(), 2);
    QCOMPARE(identity[0].x(), identity[0].y());
    const QVector<QPointF> residuals = view->residuals()->points("residuals0");
    QCOMPARE(residuals[3].y(), model.observedValues[3] - m_record.Y.last()[best][3]);
}

void ResultViewsTest::parameterViews()
{
    setRecord(m_record);
    results()->percentileBox()->setValue(50);
    const PointSelection selection = expectedSelection(50);
    const DoubleMatrix &parameters = m_record.Parameter.last();

    showTab("Parameters");
    auto *strips = static_cast<ParameterView *>(results()->view("Parameters"));
    QCOMPARE(strips->grid()->count(), 3);
    ChartPanel *v = strips->grid()->panel(1);
    int dots = 0;
    for (int g = 0; g <= results()->grouping().groupCount; ++g)
        dots += v->points("group" + QString::number(g)).size();
    QCOMPARE(dots, selection.points.size());
    QCOMPARE(v->points("best").first().y(), parameters[selection.best][1]);
    QCOMPARE(strips->summaryTable()->item(1, 0)->text(),
             QString::number(parameters[selection.best][1], 'g', 6));
    QVector<double> column;
    for (int i : selection.points)
        column << parameters[i][1];
    QCOMPARE(strips->summaryTable()->item(1, 1)->text(), QString::number(medianOf(column), 'g', 6));

    showTab("Parameter Range");
    auto *ranges = static_cast<ParameterRangeView *>(results()->view("Parameter Range"));
    // V: domain 5 to 100 on a log scale (a factor of 20, positive).
    const RangeScale scale = rangeScaleFor({5, 100, 0, 500}, true, {});
    const QVector<QPointF> bar = ranges->chart()->points("selected1");
    QCOMPARE(bar.size(), 2);
    QVERIFY(std::abs(bar[0].x() - scale.position(*std::min_element(column.begin(), column.end()))) < 1e-12);
    QVERIFY(std::abs(bar[1].x() - scale.position(*std::max_element(column.begin(), column.end()))) < 1e-12);
    QCOMPARE(ranges->chart()->points("domain1"), (QVector<QPointF>{{0, 2}, {1, 2}}));

    showTab("SSR-Parameter");
    auto *profiles = static_cast<SsrParameterView *>(results()->view("SSR-Parameter"));
    ChartPanel *ka = profiles->grid()->panel(2);
    QCOMPARE(ka->points("selected").size() + ka->points("others").size(), 40);
    const QVector<double> envelope = ys(ka->points("envelope"));
    QCOMPARE(*std::min_element(envelope.begin(), envelope.end()), m_record.SSR.last()[selection.best]);
}

void ResultViewsTest::correlationTable()
{
    setRecord(m_record);
    results()->percentileBox()->setValue(75);
    showTab("Parameter-Parameter distribution");
    const PointSelection selection = expectedSelection(75);
    // The sample correlation of x1 and x3 by hand.
    const DoubleMatrix &X = m_record.X.last();
    double m1 = 0, m3 = 0;
    for (int i : selection.points) {
        m1 += X[i][0] / selection.points.size();
        m3 += X[i][2] / selection.points.size();
    }
    double s13 = 0, s11 = 0, s33 = 0;
    for (int i : selection.points) {
        s13 += (X[i][0] - m1) * (X[i][2] - m3);
        s11 += (X[i][0] - m1) * (X[i][0] - m1);
        s33 += (X[i][2] - m3) * (X[i][2] - m3);
    }
    QTableWidget *table = results()->correlationTable();
    QCOMPARE(table->rowCount(), 3);
    QCOMPARE(table->item(0, 2)->text(), QString::number(s13 / std::sqrt(s11 * s33), 'f', 2));
    QCOMPARE(table->item(1, 1)->text(), QString("1.00"));
    QCOMPARE(table->horizontalHeaderItem(2)->text(), QString("ka"));
    QCOMPARE(table->editTriggers(), QAbstractItemView::NoEditTriggers);

    // A click on a cell plots that pair.
    auto *pairs = static_cast<ParameterPairsView *>(results()->view("Parameter-Parameter distribution"));
    emit table->cellClicked(2, 0);
    QCOMPARE(pairs->xBox()->currentText(), QString("CL"));
    QCOMPARE(pairs->yBox()->currentText(), QString("ka"));
    QCOMPARE(pairs->chart()->points("best").first(), QPointF(m_record.Parameter.last()[selection.best][0],
                                                             m_record.Parameter.last()[selection.best][2]));
}

void ResultViewsTest::csvExports()
{
    setRecord(m_record);
    const int best = results()->selection().best;
    const QStringList lines = results()->currentPlotCsvText().split('\n');
    QCOMPARE(lines[0], QString(",time,observed,best fit,selected min,selected median,selected max"));
    const QStringList first = lines[1].split(',');
    QCOMPARE(first.mid(0, 4),
             (QStringList{"Ac/V", "0.25", "2.04647", QString::number(m_record.Y.last()[best][0], 'g', 6)}));
    QCOMPARE(lines.size(), 13 + 2); // header, 13 rows, the final line end

    showTab("Parameters");
    const QStringList strip = results()->currentPlotCsvText().split('\n');
    QCOMPARE(strip[0], QString(",SSR,group,CL,V,ka"));
    QVERIFY(strip[1].startsWith(QString("point %1,").arg(best)));

    const QString typical = labelledColumnsText(results()->typicalParameters().columnNames,
                                                results()->typicalParameters().columns,
                                                results()->typicalParameters().rowLabels);
    const QStringList rows = typical.split('\n', Qt::SkipEmptyParts);
    QCOMPARE(rows[0],
             QString(",size,best SSR,best point,best CL,best V,best ka,median CL,median V,median ka"));
    QCOMPARE(rows.size(), 1 + results()->grouping().groupCount);
    QVERIFY(rows[1].startsWith(QString("group 1,")));
    QCOMPARE(rows[1].split(',')[3], QString::number(best)); // group 1 holds the best point

    QTemporaryDir dir;
    const QString pdf = dir.filePath("plot.pdf");
    QVERIFY(results()->writeCurrentPlotPdf(pdf));
    QFile file(pdf);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.read(4) == "%PDF");
    QVERIFY(results()
                    ->proposedFileName("parameters", "csv")
                    .endsWith("AMM_parameters_iteration9_percentile100.csv"));
}

void ResultViewsTest::grouping()
{
    setRecord(twoGroupRecord());
    showTab("Parameter-Parameter distribution");
    QCOMPARE(results()->clusterCountBox()->value(), 5);
    QCOMPARE(results()->grouping().groupCount, 5);

    results()->findOptimalClustering();
    QCOMPARE(results()->clusterCountBox()->value(), 2);
    QVERIFY(results()->clusteringNote()->text().contains("2: 0.9"));
    auto *pairs = static_cast<ParameterPairsView *>(results()->view("Parameter-Parameter distribution"));
    // The best point (SSR 1, row 0) is in group 1; each group holds one parity.
    QCOMPARE(pairs->chart()->points("group1").size(), 20);
    QCOMPARE(pairs->chart()->points("group2").size(), 20);
    for (const QPointF &p : pairs->chart()->points("group1"))
        QVERIFY(p.x() < 1);
    QVERIFY(!pairs->chart()->isShown("group3"));
    // Three parameters: the names of the model in the window.
    QCOMPARE(pairs->xBox()->currentText(), QString("CL"));
}

void ResultViewsTest::jacobianGivesStandardErrors()
{
    setRecord(m_record);
    showTab("Parameter Range");
    auto *ranges = static_cast<ParameterRangeView *>(results()->view("Parameter Range"));
    QVERIFY(ranges->sourceLabel()->text().contains("Jacobian of the run's last step") ||
            ranges->sourceLabel()->text().startsWith("No Jacobian"));

    m_window->workbench().simulation->computeJacobianButton()->click();
    QVERIFY(ranges->sourceLabel()->text().contains("finite differences"));
    QTableWidget *table = ranges->uncertaintyTable();
    for (int a = 0; a < 3; ++a) {
        bool ok = false;
        const double se = table->item(a, 3)->text().toDouble(&ok);
        QVERIFY2(ok && se > 0, qPrintable(table->item(a, 3)->text()));
    }
    QCOMPARE(ranges->estimateCorrelationTable()->rowCount(), 3);
    QVERIFY(ranges->chart()->isShown("interval0"));
}

void ResultViewsTest::convergenceTab()
{
    setRecord(m_record);
    auto *runTabs = m_window->findChild<QTabWidget *>("tabWidget_2");
    QCOMPARE(runTabs->tabText(2), QString("Convergence"));
    const QVector<SsrQuartiles> quartiles = ssrQuartiles(m_record.SSR);
    const QVector<QPointF> minimum = results()->convergence()->chart()->points("line0");
    QCOMPARE(minimum.size(), 10);
    for (int k = 0; k < 10; ++k)
        QCOMPARE(minimum[k], QPointF(k, quartiles[k].minimum));
}

void ResultViewsTest::everyTabSurvivesBadRecords()
{
    compResult allFailed = m_record;
    allFailed.SSR.last().fill(kNaN);
    compResult onePoint;
    onePoint.X = {{{0.5}}};
    onePoint.Parameter = {{{2.0}}};
    onePoint.SSR = {{3.0}};
    onePoint.Y = {{{1.0}}};
    compResult nanRows = m_record;
    for (int i = 0; i < 40; i += 3) {
        nanRows.X.last()[i].fill(kNaN);
        nanRows.Y.last()[i].fill(kNaN);
        nanRows.SSR.last()[i] = kNaN;
    }
    compResult fixedParameter = m_record;
    for (QVector<double> &row : fixedParameter.Parameter.last())
        row[0] = 4;
    const QVector<compResult> records{compResult(), allFailed, onePoint, nanRows, fixedParameter};
    for (int r = 0; r < records.size(); ++r) {
        setRecord(records[r]);
        for (int percentile : {0, 100, 37}) {
            results()->percentileBox()->setValue(percentile);
            for (const QString &title : ResultsStep::tabTitles()) {
                showTab(title);
                QVERIFY(!results()->currentPlotCsvText().isNull());
            }
        }
        if (r < 2) {
            const QString title = results()->chartView("Parameters")->chart()->title();
            QVERIFY2(title.startsWith("Nothing to show"), qPrintable(title));
        }
    }
}

QTEST_MAIN(ResultViewsTest)
#include "test_result_views.moc"
