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

// Waits for a started process and collects what it printed.
inline Outcome finished(QProcess &process, int timeoutMs = 180000)
{
    process.waitForFinished(timeoutMs);
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError()), process.exitStatus() != QProcess::NormalExit};
}

// Runs ambrel-batch with the arguments and waits up to two minutes.
inline Outcome batch(const QStringList &arguments)
{
    QProcess process;
    process.start(AMBREL_BATCH, arguments);
    return finished(process, 120000);
}

// Reads a running process's standard output until it holds text (or the
// process is silent for a minute); returns what was read.
inline QString readOutputUntil(QProcess &process, const QString &text)
{
    QString out;
    while (!out.contains(text) && process.waitForReadyRead(60000))
        out += QString::fromUtf8(process.readAllStandardOutput());
    return out;
}
