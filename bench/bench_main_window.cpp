// The workbench window's own costs, on the 12-state PBPK example:
//
//   BM_Window_ConstructAndShow   building the window with all seven steps and
//                                showing it (target under 500 ms)
//   BM_Window_ResultArrives/N    handling one current_computation_result of
//                                a 250-point run with toolbox page N current
//                                (5 = Step5 with the log, 6 = Step6 with the
//                                result views), painting included (target
//                                under 20 ms)
//   BM_Window_RunStall           a whole run (10 + 2 iterations, 250 points)
//                                started with the Start button; the counter
//                                max_gap_ms is the largest gap between ticks
//                                of a 10 ms timer on the GUI thread (target
//                                under 100 ms)
//
// Offscreen: QT_QPA_PLATFORM=offscreen build/bench/bench_main_window
#include "engine/EngineSetup.h"
#include "engine/ambrel_method.h"
#include "project/ProjectModel.h"
#include "ui/MainWindow.h"

#include "bench_support.h"

#include <benchmark/benchmark.h>

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QPushButton>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QTimer>
#include <QToolBox>

#include <memory>
#include <random>

namespace {

const char *const kExample = AMBREL_EXAMPLES_DIR "/pbpk";

// A copy of the example's model folder, so runs never write into the tree.
QString exampleCopy(const QTemporaryDir &dir)
{
    const QDir source(QString::fromLatin1(kExample) + "/model");
    QDir().mkpath(dir.path() + "/model");
    for (const QString &name : source.entryList(QDir::Files))
        QFile::copy(source.filePath(name), dir.path() + "/model/" + name);
    return dir.path();
}

// The record of a short real run: two Stage 1 iterations of 250 points.
compResult shortRunRecord()
{
    QTemporaryDir dir;
    const ProjectModel project = loadProjectModel(exampleCopy(dir));
    RunSettings settings;
    settings.stage1Iterations = 2;
    settings.stage2Iterations = 0;
    settings.integratorMessages = nullptr;
    ambrel_method engine;
    configureEngine(engine, project, settings);
    std::mt19937_64 generator(3);
    engine.result.X << sampleInitialCluster(projectSearchDomain(project), 250, generator);
    engine.run();
    return engine.result;
}

template<typename T>
T *find(const MainWindow &window, const char *name)
{
    return window.findChild<T *>(QLatin1String(name));
}

void BM_Window_ConstructAndShow(benchmark::State &state)
{
    for (auto _ : state) {
        MainWindow window;
        window.show();
        QApplication::processEvents();
    }
}
BENCHMARK(BM_Window_ConstructAndShow)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);

void BM_Window_ResultArrives(benchmark::State &state)
{
    QTemporaryDir dir;
    MainWindow window;
    window.openProject(exampleCopy(dir));
    find<QToolBox>(window, "toolBox")->setCurrentIndex(int(state.range(0)));
    window.show();
    const compResult record = shortRunRecord();
    QApplication::processEvents();
    for (auto _ : state) {
        window.update_computation_result(record);
        QApplication::processEvents();
    }
}
BENCHMARK(BM_Window_ResultArrives)->Arg(5)->Arg(6)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_Window_RunStall(benchmark::State &state)
{
    for (auto _ : state) {
        QTemporaryDir dir;
        MainWindow window;
        window.openProject(exampleCopy(dir));
        find<QSpinBox>(window, "spinBox_numTotIter")->setValue(10);
        find<QSpinBox>(window, "spinBox_numS2_iter")->setValue(2);
        find<QSpinBox>(window, "spinBox_numInitICluster")->setValue(250);
        find<QPushButton>(window, "pushButton_4")->click(); // Generate Parameters
        find<QToolBox>(window, "toolBox")->setCurrentIndex(5);
        window.show();
        QApplication::processEvents();

        qint64 maxGap = 0;
        QElapsedTimer sinceTick;
        QTimer ticker;
        QObject::connect(&ticker, &QTimer::timeout, [&] { maxGap = std::max(maxGap, sinceTick.restart()); });
        QAction *stop = find<QAction>(window, "actionAbort");
        find<QPushButton>(window, "pushButton_runAMmethod")->click();
        sinceTick.start();
        ticker.start(10);
        while (stop->isEnabled())
            QApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
        state.counters["max_gap_ms"] = double(maxGap);
    }
}
BENCHMARK(BM_Window_RunStall)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1);

} // namespace

int main(int argc, char **argv)
{
    return runBenchmarks<QApplication>(argc, argv);
}
