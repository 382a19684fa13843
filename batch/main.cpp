// ambrel-batch: runs the Ambrel method and forward simulations on a project
// folder without the workbench.
#include "BatchCommon.h"
#include "MpiEvaluation.h"
#include "RunReport.h"

#include <QCoreApplication>

#include <cstdio>

namespace {

const char *const kUsage =
        "usage:\n"
        "  ambrel-batch run DIR [--stage1-iterations N] [--stage2-iterations N] [--stage1-reltol X]\n"
        "                       [--initial-lambda X] [--max-initial-tries N] [--stricter-initial-sampling]\n"
        "                       [--timeout-ms N] [--points N] [--threads N] [--seed N] [--polish]\n"
        "                       [--restart]\n"
        "  ambrel-batch simulate DIR --expression EXPR [--expression EXPR ...] --times \"0:1:10\"\n"
        "                       [--parameters NAME=VALUE,...] [--integrator lsoda|rosenbrock]\n"
        "  ambrel-batch export DIR\n"
        "  ambrel-batch COMMAND --help   the command's options and their defaults\n";

bool asksForHelp(const QStringList &arguments)
{
    return arguments.contains(QLatin1String("--help")) || arguments.contains(QLatin1String("-h"));
}

// The help of the command named first, or the usage.
int printHelp(const QStringList &arguments)
{
    const QString command = arguments.value(0);
    if (command == QLatin1String("run"))
        std::printf("%s", qPrintable(runHelpText()));
    else if (command == QLatin1String("simulate"))
        std::printf("%s", qPrintable(simulateHelpText()));
    else if (command == QLatin1String("export"))
        std::printf("%s", qPrintable(exportHelpText()));
    else
        std::printf("%s", kUsage);
    return 0;
}

// The engine's diagnostics are for developers; the batch tool shows them only
// with AMBREL_DEBUG set.
void quietMessages(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type != QtDebugMsg && type != QtInfoMsg)
        std::fprintf(stderr, "%s\n", qPrintable(message));
}

} // namespace

int main(int argc, char **argv)
{
    const MpiSession mpi(argc, argv);
    QCoreApplication app(argc, argv);
    if (qEnvironmentVariableIsEmpty("AMBREL_DEBUG"))
        qInstallMessageHandler(quietMessages);
    const QStringList arguments = app.arguments().mid(1);
    if (asksForHelp(arguments))
        return printHelp(arguments);
    // Under an MPI launcher the ranks other than 0 only evaluate for rank 0.
    if (mpi.rank() > 0)
        return serveRankZero(arguments.value(1), arguments.mid(2));
    if (arguments.size() < 2) {
        std::fprintf(stderr, "%s", kUsage);
        return kInvalidInput;
    }
    const QString command = arguments[0];
    const QString folder = arguments[1];
    const QStringList options = arguments.mid(2);
    try {
        if (command == QLatin1String("run"))
            return runCommand(folder, options);
        if (command == QLatin1String("simulate"))
            return simulateCommand(folder, options);
        if (command == QLatin1String("export"))
            return exportCommand(folder, options);
        std::fprintf(stderr, "Unknown command: %s\n%s", qPrintable(command), kUsage);
        return kInvalidInput;
    } catch (const InputError &error) {
        std::fprintf(stderr, "%s\n", error.what());
        return kInvalidInput;
    }
}
