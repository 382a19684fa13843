// The simulation tab on the bundled PBPK example (12 states, two infusions):
// 100 parameter sets drawn in the domains of interest, 500 time points over
// 0 to 49.9 h. Measured in wall time, on the global thread pool:
//  - Solve: the 100 solves in parallel (simulateAll);
//  - Plot: the chart of the 100 lines built and painted (1200 x 700);
//  - Window: the whole "Compute simulation" of the window, from the click to
//    the painted chart, with the tables read from the window's widgets.
#include "ui/MainWindow.h"
#include "ui/simulation/SimulationChart.h"
#include "ui/simulation/SimulationRun.h"
#include "ui/steps/SimulationStep.h"
#include "ui/tables/TableWidgetFiles.h"
#include "ui/widgets/QTableWidgetWithCopyPaste.h"

#include "project/ProjectModel.h"

#include <QApplication>
#include <QChartView>
#include <QEventLoop>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QTableWidget>
#include <QTextEdit>
#include <QThreadPool>
#include <QToolBox>

#include <benchmark/benchmark.h>

#include <random>

namespace {

const QString pbpkFolder = QStringLiteral(AMBREL_EXAMPLES_DIR "/pbpk");
constexpr int setCount = 100;
constexpr int timeCount = 500;

const ProjectModel &pbpk()
{
    static const ProjectModel project = loadProjectModel(pbpkFolder);
    return project;
}

DoubleMatrix parameterSets()
{
    std::mt19937 random(7);
    DoubleMatrix sets;
    for (int s = 0; s < setCount; ++s) {
        QVector<double> set;
        for (const ParameterSpecificationRow &row : pbpk().parameterRows)
            set << std::uniform_real_distribution<double>(row.domainLower, row.domainUpper)(random);
        sets << set;
    }
    return sets;
}

QStringList timeTexts()
{
    QStringList texts;
    for (int i = 0; i < timeCount; ++i)
        texts << QString::number(i * 0.1);
    return texts;
}

SimulationJob pbpkJob()
{
    SimulationJob job;
    job.system = pbpk().system;
    job.doses = pbpk().doseEvents;
    job.times = parseSimulationTimePoints(timeTexts().join(','));
    job.parameterSets = parameterSets();
    job.expression = QStringLiteral("Aven/3.4");
    return job;
}

void counters(benchmark::State &state)
{
    state.counters["sets"] = setCount;
    state.counters["time_points"] = timeCount;
    state.counters["threads"] = QThreadPool::globalInstance()->maxThreadCount();
}

void paint(QtCharts::QChartView &view)
{
    // The replaced axes' items are deleted later, as an event loop would.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    benchmark::DoNotOptimize(view.grab());
}

QString fileText(const QString &path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly | QIODevice::Text);
    return QString::fromUtf8(file.readAll());
}

} // namespace

static void BM_SimulationTab_Solve(benchmark::State &state)
{
    const SimulationJob job = pbpkJob();
    for (auto _ : state)
        benchmark::DoNotOptimize(simulateAll(job));
    counters(state);
}
BENCHMARK(BM_SimulationTab_Solve)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);

static void BM_SimulationTab_Plot(benchmark::State &state)
{
    const SimulationJob job = pbpkJob();
    const SimulationOutcome outcome = collectSimulation(job, simulateAll(job));
    SimulationPlot plot{outcome.times, outcome.values, {}, job.expression, {}, {}};
    for (int s = 1; s <= setCount; ++s)
        plot.lineNames << QStringLiteral("row %1").arg(s);
    QtCharts::QChartView view;
    view.resize(1200, 700);
    view.setRenderHint(QPainter::Antialiasing);
    for (auto _ : state) {
        drawSimulationChart(view.chart(), plot, state.range(0) != 0);
        paint(view);
    }
    counters(state);
}
BENCHMARK(BM_SimulationTab_Plot)
        ->Arg(0)
        ->Arg(1)
        ->ArgName("log")
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();

static void BM_SimulationTab_Window(benchmark::State &state)
{
    MainWindow window;
    window.resize(1280, 900);
    const QString model = pbpkFolder + "/model/";
    window.findChild<QTextEdit *>("textEdit_ODEExpression")
            ->setPlainText(fileText(model + "ODE_expression.txt"));
    window.findChild<QTextEdit *>("textEdit_auxFunction")
            ->setPlainText(fileText(model + "ODE_auxiliary_function_expression.txt"));
    readTable(model + "parameter_specifications.csv",
              window.findChild<QTableWidget *>("tableWidget_parametersSpec"));
    readTable(model + "observations.txt", window.findChild<QTableWidget *>("tableWidget_observations"));
    SimulationStep *step = window.workbench().simulation;
    readTable(model + "dose_events.txt", step->doseTable());
    step->parameterTable()->setColumnCount(pbpk().system.parameterNames.size());
    step->parameterTable()->setHorizontalHeaderLabels(pbpk().system.parameterNames);
    matrixToTable(step->parameterTable(), parameterSets());
    step->variableEdit()->setText(QStringLiteral("Aven/3.4"));
    step->timePointsEdit()->setText(timeTexts().join(','));
    step->timePointsEdited();

    // The results page on screen, as the user sees it.
    window.show();
    window.findChild<QToolBox *>("toolBox")->setCurrentWidget(step->page());
    step->tabs()->setCurrentIndex(2);
    QApplication::processEvents();

    auto *compute = window.findChild<QPushButton *>("pushButton_computeSimulation");
    for (auto _ : state) {
        QEventLoop loop;
        QObject::connect(step, &SimulationStep::simulationFinished, &loop, &QEventLoop::quit);
        compute->click();
        if (step->isComputing())
            loop.exec();
        paint(*step->chartView());
        if (step->result().values.size() != setCount) {
            state.SkipWithError("the simulation gave no result");
            break;
        }
    }
    counters(state);
}
BENCHMARK(BM_SimulationTab_Window)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
