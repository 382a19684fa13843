#pragma once

// Running the batch tool as a user does, for the tests of its behaviour.
#include <QProcess>
#include <QString>
#include <QStringList>

struct Outcome {
    int exitCode;
    QString out;
    QString err;
    bool crashed = false;
};

// Runs ambrel-batch with the arguments and waits up to two minutes.
inline Outcome batch(const QStringList &arguments)
{
    QProcess process;
    process.start(AMBREL_BATCH, arguments);
    process.waitForFinished(120000);
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError()), process.exitStatus() != QProcess::NormalExit};
}
