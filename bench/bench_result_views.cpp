// The cost of the result views' refresh: what the window spends after every
// iteration of a run. A record of the oral-absorption model with 20
// observations and 250 or 10,000 points (three iterations) is put into the
// window; each row times one refresh with one tab current: the point
// selection, the grouping (5 groups) and the redraw of that tab, and, in the
// _Painted rows, also the painting of the window (offscreen).
//
//   BM_SetResult      a new record arrives (as during a run): frame, sorted
//                     SSR list, convergence plot, selection, grouping, tab
//   BM_Percentile     the percentile changes on a kept record
//   BM_Analyses       the headless parts alone: selection, k-means, the
//                     lower envelopes and the correlation matrix
//
// The target is under 20 ms with 250 points and under 200 ms with 10,000.
#include "analysis/ClusterStatistics.h"
#include "analysis/Grouping.h"
#include "analysis/PointSelection.h"
#include "analysis/SsrEnvelope.h"
#include "ui/MainWindow.h"
#include "ui/ProjectDocument.h"
#include "ui/results/VariableVariabilityView.h"
#include "ui/steps/ResultsStep.h"
#include "ui/tables/TableWidgetFiles.h"

#include "bench_support.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QCheckBox>
#include <QFile>
#include <QSpinBox>
#include <QTabWidget>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTextEdit>
#include <QTextStream>
#include <QToolBox>

#include <cmath>
#include <memory>
#include <random>

namespace {

const int observationCount = 20;
const double dose = 320;

QVector<double> observationTimes()
{
    QVector<double> times;
    for (int j = 0; j < observationCount; ++j)
        times << 0.25 * std::pow(96.0, double(j) / (observationCount - 1)); // 0.25 to 24 h
    return times;
}

// Gut and central amounts of the one-compartment oral model at time t.
QVector<double> states(double cl, double v, double ka, double t)
{
    const double ke = cl / v;
    const double gut = dose * std::exp(-ka * t);
    const double central = dose * ka / (ka - ke) * (std::exp(-ke * t) - std::exp(-ka * t));
    return {gut, central};
}

double logit(double value, double upper)
{
    return std::log(value / (upper - value));
}

// n points spread around CL = 4, V = 40, ka = 1.2 (log-normal, 30 %).
compResult makeRecord(int n)
{
    std::mt19937_64 generator(11);
    std::normal_distribution<double> spread(0, 0.3);
    const QVector<double> times = observationTimes();
    DoubleMatrix X, parameters, Y;
    QVector<double> ssr;
    QVector<DoubleMatrix> solutions;
    for (int i = 0; i < n; ++i) {
        const double cl = 4 * std::exp(spread(generator)), v = 40 * std::exp(spread(generator)),
                     ka = 1.2 * std::exp(spread(generator));
        X << QVector<double>{logit(cl, 100), logit(v, 500), logit(ka, 20)};
        parameters << QVector<double>{cl, v, ka};
        QVector<double> outputs;
        DoubleMatrix solution;
        double sum = 0;
        for (double t : times) {
            const QVector<double> s = states(cl, v, ka, t);
            const double observed = states(4, 40, 1.2, t)[1] / 40;
            outputs << s[1] / v;
            solution << s;
            sum += (s[1] / v - observed) * (s[1] / v - observed);
        }
        Y << outputs;
        ssr << sum;
        solutions << solution;
    }
    compResult record;
    record.X = {X, X, X};
    record.Parameter = {parameters, parameters, parameters};
    record.Y = {Y, Y, Y};
    record.SSR = {ssr, ssr, ssr};
    record.lambda = {QVector<double>(n, 1), QVector<double>(n, 1), QVector<double>(n, 1)};
    record.solutions = solutions;
    record.solutionTimes = times;
    record.updateSortIndex();
    return record;
}

// The window with the example's model and 20 observations of its central
// concentration, shown offscreen.
std::unique_ptr<MainWindow> makeWindow()
{
    auto window = std::make_unique<MainWindow>();
    const QString model = AMBREL_EXAMPLES_DIR "/oral-absorption/model/";
    const auto text = [&](const char *name, const char *file) {
        QFile f(model + file);
        f.open(QIODevice::ReadOnly | QIODevice::Text);
        window->findChild<QTextEdit *>(name)->setPlainText(QTextStream(&f).readAll());
    };
    text("textEdit_ODEExpression", "ODE_expression.txt");
    text("textEdit_paraDefinition", "reparaDefinition.txt");
    text("textEdit_paraDefInverse", "reparaInverse.txt");
    readTable(model + "dose_events.txt", window->findChild<QTableWidget *>("tableWidget_doseEvents"));
    readTable(model + "parameter_specifications.csv",
              window->findChild<QTableWidget *>("tableWidget_parametersSpec"));
    QTemporaryDir dir;
    QFile observations(dir.filePath("observations.txt"));
    observations.open(QIODevice::WriteOnly | QIODevice::Text);
    QTextStream out(&observations);
    for (double t : observationTimes())
        out << t << ",Ac/V," << states(4, 40, 1.2, t)[1] / 40 << "\n";
    out.flush();
    observations.close();
    readTable(observations.fileName(), window->findChild<QTableWidget *>("tableWidget_observations"));
    window->resize(1280, 900);
    window->findChild<QToolBox *>(QStringLiteral("toolBox"))->setCurrentIndex(6); // Step6 on screen
    window->show();
    return window;
}

MainWindow &window()
{
    static std::unique_ptr<MainWindow> instance = makeWindow();
    return *instance;
}

const compResult &record(int points)
{
    static std::map<int, compResult> records;
    auto found = records.find(points);
    if (found == records.end())
        found = records.emplace(points, makeRecord(points)).first;
    return found->second;
}

// Shows Step6 on the tab; the record is set once per row.
ResultsStep *prepare(int tab, int points)
{
    ResultsStep *results = window().workbench().results;
    results->tabs()->setCurrentIndex(tab);
    window().workbench().document->setResult(record(points));
    QApplication::processEvents();
    return results;
}

void refreshTab(benchmark::State &state, bool painted, bool newRecord)
{
    const int tab = int(state.range(0)), points = int(state.range(1));
    ResultsStep *results = prepare(tab, points);
    auto *variabilities =
            static_cast<VariableVariabilityView *>(results->view(QStringLiteral("Variable Variabilities")));
    int percentile = 90;
    for (auto _ : state) {
        if (tab == 5) // drawn outside the refresh: by its update button
            emit variabilities->optionsChanged();
        else if (newRecord)
            window().workbench().document->setResult(record(points));
        else
            results->percentileBox()->setValue(percentile = percentile == 90 ? 80 : 90);
        if (painted)
            QApplication::processEvents();
    }
    state.SetLabel(ResultsStep::tabTitles()[tab].toStdString());
}

void BM_SetResult(benchmark::State &state)
{
    refreshTab(state, false, true);
}

void BM_SetResult_Painted(benchmark::State &state)
{
    refreshTab(state, true, true);
}

void BM_Percentile(benchmark::State &state)
{
    refreshTab(state, false, false);
}

void BM_Analyses(benchmark::State &state)
{
    const compResult &r = record(int(state.range(0)));
    for (auto _ : state) {
        const PointSelection selection = selectByPercentile(r.SSR.last(), 90);
        DoubleMatrix rows;
        for (int i : selection.points)
            rows << r.X.last()[i];
        benchmark::DoNotOptimize(kMeans(rows, 5));
        for (int a = 0; a < 3; ++a) {
            QVector<double> column;
            for (const QVector<double> &row : r.Parameter.last())
                column << row[a];
            benchmark::DoNotOptimize(lowerEnvelope(column, r.SSR.last(), 60, true));
        }
        benchmark::DoNotOptimize(correlationMatrix(r.X.last(), selection.points, 3));
    }
}

void tabsAndSizes(benchmark::internal::Benchmark *b)
{
    for (int points : {250, 10000})
        for (int tab = 0; tab < 6; ++tab)
            b->Args({tab, points});
    b->Unit(benchmark::kMillisecond);
}

} // namespace

BENCHMARK(BM_SetResult)->Apply(tabsAndSizes);
BENCHMARK(BM_SetResult_Painted)->Apply(tabsAndSizes);
BENCHMARK(BM_Percentile)->Apply(tabsAndSizes);
BENCHMARK(BM_Analyses)->Arg(250)->Arg(10000)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    return runBenchmarks<QApplication>(argc, argv);
}
