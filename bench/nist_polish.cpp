// The certified nonlinear-regression problems of examples/nist: a default run
// of the method on each, then the polishing stage, compared with the
// certified values. Prints per problem the relative errors of the residual
// sum of squares, of the parameters and of their standard deviations (the
// largest over the parameters), for the best point of the cluster and for the
// best polished minimiser, and the polishing's share of the run time.
//
//   nist_polish [--seed N] [--stage1-iterations N] [--stage2-iterations N]
//               [--problems DIR] [NAME...]
//
// DIR holds certified.json and the project folders (default examples/nist).
#include "engine/EngineSetup.h"
#include "engine/Polish.h"
#include "engine/ambrel_method.h"
#include "project/ProjectModel.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <limits>

namespace {

struct Certified {
    QStringList names;
    QVector<double> parameters, deviations;
    double rss = 0;
};

QVector<double> numbers(const QJsonValue &value)
{
    QVector<double> out;
    for (const QJsonValue &v : value.toArray())
        out << v.toDouble();
    return out;
}

double relative(double value, double certified)
{
    return std::abs(value - certified) / std::abs(certified);
}

// The largest relative error over the parameters, matched by name.
double largestError(const QStringList &names, const QVector<double> &values, const Certified &certified,
                    const QVector<double> &reference)
{
    double largest = 0;
    for (int c = 0; c < certified.names.size(); ++c) {
        const int a = names.indexOf(certified.names[c]);
        const double v = a >= 0 ? values.value(a, std::nan("")) : std::nan("");
        const double e = relative(v, reference[c]);
        largest = std::isnan(e) ? e : std::max(largest, e);
        if (std::isnan(largest))
            break;
    }
    return largest;
}

struct RunSummary {
    double runSeconds = 0, polishSeconds = 0;
    double clusterSsr = 0;
    QVector<double> clusterParameters;
    PolishOutcome polish;
};

RunSummary runProblem(const ProjectModel &project, const RunSettings &settings)
{
    ambrel_method engine;
    configureEngine(engine, project, settings);
    std::mt19937_64 generator(*settings.seed);
    engine.result.X << sampleInitialCluster(projectSearchDomain(project), settings.initialClusterPoints,
                                            generator);
    QElapsedTimer timer;
    timer.start();
    engine.run();
    RunSummary summary;
    const compResult &result = engine.result;
    if (result.SSR.isEmpty())
        return summary;
    const int best = result.sortIndex.value(0);
    summary.clusterSsr = result.SSR.last().value(best, std::nan(""));
    summary.clusterParameters = result.Parameter.last().value(best);
    // The stage as the engine runs it, kept here for its standard errors.
    summary.polish = polishMinimisers(polishInput(engine));
    summary.runSeconds = double(timer.nsecsElapsed()) * 1e-9;
    summary.polishSeconds = summary.polish.seconds;
    return summary;
}

void report(const QString &name, const Certified &certified, const ProjectModel &project,
            const RunSummary &run)
{
    const QStringList &names = project.system.parameterNames;
    const PolishedMinimiser *best = nullptr;
    for (const PolishedMinimiser &m : run.polish.minimisers)
        if (!best || m.fit.ssr < best->fit.ssr)
            best = &m;
    std::printf("%-9s cluster: SSR %.2e par %.2e | polished (%d of %d groups): ", qPrintable(name),
                relative(run.clusterSsr, certified.rss),
                largestError(names, run.clusterParameters, certified, certified.parameters),
                run.polish.minimisers.size(), run.polish.groups);
    if (!best) {
        std::printf("none\n");
        return;
    }
    std::printf(
            "SSR %.2e par %.2e sd %.2e cond %.3g, %d it, %s | polish %.2f of %.2f s (%.1f %%)\n",
            relative(best->fit.ssr, certified.rss),
            largestError(names, best->evaluation.parameters, certified, certified.parameters),
            largestError(names, best->uncertainty.parameterStandardErrors, certified, certified.deviations),
            best->uncertainty.conditionNumber, best->fit.iterations,
            qPrintable(leastSquaresStopText(best->fit.stop)), run.polishSeconds, run.runSeconds,
            100.0 * run.polishSeconds / run.runSeconds);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    RunSettings settings;
    settings.integratorMessages = nullptr;
    settings.seed = 1;
    QString nist = QStringLiteral(AMBREL_EXAMPLES_DIR "/nist");
    QStringList only;
    const QStringList arguments = app.arguments().mid(1);
    for (int i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--seed" && i + 1 < arguments.size())
            settings.seed = arguments[++i].toULongLong();
        else if (arguments[i] == "--stage1-iterations" && i + 1 < arguments.size())
            settings.stage1Iterations = arguments[++i].toInt();
        else if (arguments[i] == "--problems" && i + 1 < arguments.size())
            nist = arguments[++i];
        else if (arguments[i] == "--stage2-iterations" && i + 1 < arguments.size())
            settings.stage2Iterations = arguments[++i].toInt();
        else
            only << arguments[i];
    }

    QFile file(nist + "/certified.json");
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "Cannot read %s\n", qPrintable(file.fileName()));
        return 1;
    }
    const QJsonObject problems = QJsonDocument::fromJson(file.readAll()).object();
    std::printf("Relative errors against the certified values (seed %llu)\n",
                static_cast<unsigned long long>(*settings.seed));
    for (const QString &name : problems.keys()) {
        if (!only.isEmpty() && !only.contains(name))
            continue;
        const QJsonObject entry = problems.value(name).toObject();
        Certified certified;
        for (const QJsonValue &v : entry.value("parameter_order").toArray())
            certified.names << v.toString();
        certified.parameters = numbers(entry.value("certified_parameters"));
        certified.deviations = numbers(entry.value("certified_standard_deviations"));
        certified.rss = entry.value("certified_rss").toDouble();
        const ProjectModel project = loadProjectModel(nist + "/" + name + "/project");
        if (!project.isValid()) {
            std::printf("%-9s the project does not load\n", qPrintable(name));
            continue;
        }
        report(name, certified, project, runProblem(project, settings));
    }
    return 0;
}
