// Loading a project with large event tables and evaluating one point: the
// cost must grow linearly with the rows.
#include "engine/EngineSetup.h"
#include "engine/ambrel_method.h"
#include "project/ProjectModel.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cmath>

namespace {

bool copyFolder(const QString &from, const QString &to)
{
    QDir().mkpath(to);
    for (const QString &name : QDir(from).entryList(QDir::Files))
        if (!QFile::copy(from + "/" + name, to + "/" + name))
            return false;
    return true;
}

// The oral-absorption example with rows observations of Ac/V spread over
// 24 h (or rows boluses into Ag), written once per process.
QString projectWith(int rows, bool doses)
{
    static QTemporaryDir dir;
    const QString folder = dir.path() + QStringLiteral("/%1-%2").arg(doses ? "doses" : "obs").arg(rows);
    if (QDir(folder).exists())
        return folder;
    copyFolder(AMBREL_EXAMPLES_DIR "/oral-absorption/model", folder + "/model");
    QString text;
    for (int i = 0; i < rows; ++i) {
        const double t = 0.01 + 24.0 * i / rows;
        if (doses)
            text += QStringLiteral("%1,Ag,%2,0\n").arg(t, 0, 'g', 10).arg(320.0 / rows);
        else
            text += QStringLiteral("%1,Ac/V,%2\n").arg(t, 0, 'g', 10).arg(8.0 * std::exp(-0.1 * t));
    }
    QFile file(folder + (doses ? "/model/dose_events.txt" : "/model/observations.txt"));
    file.open(QIODevice::WriteOnly);
    file.write(text.toUtf8());
    return folder;
}

// Load the folder, set up the engine, evaluate the point CL=4, V=40, ka=1.2
// with the accurate (Stage 2) integrator.
void loadAndEvaluateOnce(benchmark::State &state, bool doses)
{
    const QString folder = projectWith(int(state.range(0)), doses);
    for (auto _ : state) {
        const ProjectModel project = loadProjectModel(folder);
        if (!project.isValid()) {
            state.SkipWithError("the generated project does not load");
            return;
        }
        ambrel_method engine;
        RunSettings settings;
        settings.integratorMessages = nullptr;
        configureEngine(engine, project, settings);
        engine.evaluator.useStage2 = true;
        const QVector<double> x{std::log(4.0 / 96.0), std::log(40.0 / 460.0), std::log(1.2 / 18.8)};
        benchmark::DoNotOptimize(engine.evaluator.evaluatePoint(x));
    }
    state.SetComplexityN(state.range(0));
}

void BM_LoadAndEvaluateObservations(benchmark::State &state)
{
    loadAndEvaluateOnce(state, false);
}
BENCHMARK(BM_LoadAndEvaluateObservations)
        ->RangeMultiplier(10)
        ->Range(1000, 100000)
        ->Unit(benchmark::kMillisecond)
        ->Complexity();

void BM_LoadAndEvaluateDoses(benchmark::State &state)
{
    loadAndEvaluateOnce(state, true);
}
BENCHMARK(BM_LoadAndEvaluateDoses)
        ->RangeMultiplier(10)
        ->Range(1000, 100000)
        ->Unit(benchmark::kMillisecond)
        ->Complexity();

} // namespace

BENCHMARK_MAIN();
