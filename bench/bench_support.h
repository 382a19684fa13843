#pragma once

// The main function of the benchmarks that need a Qt application object:
// the engine's and the window's debug lines are dropped, so only the rows
// (and real warnings) are printed.
#include <benchmark/benchmark.h>

#include <QtGlobal>

#include <cstdio>

inline void dropDebugMessages(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type != QtDebugMsg && type != QtInfoMsg)
        std::fprintf(stderr, "%s\n", qPrintable(message));
}

// Application is QCoreApplication for headless benchmarks, QApplication for
// those that build widgets.
template<typename Application>
int runBenchmarks(int argc, char **argv)
{
    qInstallMessageHandler(dropDebugMessages);
    Application application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
