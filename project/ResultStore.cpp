#include "project/ResultStore.h"

#include "project/AtomicFile.h"
#include "project/TableFiles.h"

#include <QDataStream>
#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTextStream>

#include <cmath>

namespace {

const QString kResultFolder = QStringLiteral("compResult");

QString resultFolderPath(const QString &projectFolder)
{
    return projectFolder + QLatin1Char('/') + kResultFolder;
}

// In the order in which moveResultsToHistory moves them.
const IterationFile kIterationFiles[] = {IterationFile::SSR, IterationFile::Lambda, IterationFile::X,
                                         IterationFile::Y, IterationFile::Parameter};

QLatin1String iterationFilePrefix(IterationFile file)
{
    switch (file) {
    case IterationFile::X:
        return QLatin1String("X_");
    case IterationFile::Y:
        return QLatin1String("Y_");
    case IterationFile::Parameter:
        return QLatin1String("Parameter_");
    case IterationFile::SSR:
        return QLatin1String("R_");
    case IterationFile::Lambda:
        return QLatin1String("lambda_");
    }
    return QLatin1String();
}

QString solutionFileName(int k, int point)
{
    return QStringLiteral("ODE_sol_%1_%2.csv").arg(k).arg(point);
}

// The point indices of the stored ODE_sol files of iteration k.
QVector<int> storedSolutionPoints(const QDir &folder, int k)
{
    static const QRegularExpression name(QStringLiteral("^ODE_sol_(\\d+)_(\\d+)\\.csv$"));
    QVector<int> points;
    const QStringList files = folder.entryList({QStringLiteral("ODE_sol_%1_*.csv").arg(k)}, QDir::Files);
    for (const QString &file : files) {
        const QRegularExpressionMatch match = name.match(file);
        if (match.hasMatch() && match.captured(1).toInt() == k)
            points << match.captured(2).toInt();
    }
    return points;
}

// The newest iteration with at least one ODE_sol file, or -1.
int newestSolutionIteration(const QDir &folder)
{
    static const QRegularExpression name(QStringLiteral("^ODE_sol_(\\d+)_(\\d+)\\.csv$"));
    int newest = -1;
    const QStringList files = folder.entryList({QStringLiteral("ODE_sol_*.csv")}, QDir::Files);
    for (const QString &file : files) {
        const QRegularExpressionMatch match = name.match(file);
        if (match.hasMatch())
            newest = std::max(newest, match.captured(1).toInt());
    }
    return newest;
}

void writeRow(const QString &path, const QVector<double> &row)
{
    writeDoubleMatrix(path, {row});
}

// The first row of a single-row file; empty for a missing file.
QVector<double> readRow(const QString &path)
{
    const DoubleMatrix matrix = readDoubleMatrix(path);
    return matrix.isEmpty() ? QVector<double>() : matrix.first();
}

// Reads the file of every stored iteration, k = 0, 1, ... up to the first
// missing file.
template<typename Entry, typename Read>
QVector<Entry> readHistory(const QString &projectFolder, IterationFile file, Read read)
{
    QVector<Entry> history;
    for (int k = 0;; ++k) {
        const QString path = resultFilePath(projectFolder, iterationFileName(file, k));
        if (!QFile::exists(path))
            break;
        history << read(path);
    }
    return history;
}

QStringList readLogLines(const QString &path)
{
    QStringList lines;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return lines;
    QTextStream stream(&file);
    stream.setCodec("UTF-8");
    while (!stream.atEnd())
        lines << stream.readLine();
    return lines;
}

// Copies the file into the target folder and removes it; returns false when
// the file is missing. A file whose copy fails is kept.
bool moveFile(const QDir &from, const QDir &to, const QString &fileName)
{
    const QString source = from.filePath(fileName);
    if (!QFile::exists(source))
        return false;
    if (QFile::copy(source, to.filePath(fileName)))
        QFile::remove(source);
    else
        qDebug() << "Error, unable to copy" << source;
    return true;
}

} // namespace

QString iterationFileName(IterationFile file, int k)
{
    return iterationFilePrefix(file) + QString::number(k) + QLatin1String(".csv");
}

QString resultFileRelativePath(const QString &fileName)
{
    return kResultFolder + QLatin1Char('/') + fileName;
}

QString resultFilePath(const QString &projectFolder, const QString &fileName)
{
    return projectFolder + QLatin1Char('/') + resultFileRelativePath(fileName);
}

int storedIterationCount(const QString &projectFolder, IterationFile file)
{
    int count = 0;
    while (QFile::exists(resultFilePath(projectFolder, iterationFileName(file, count))))
        ++count;
    return count;
}

DoubleMatrix readIterationFile(const QString &projectFolder, IterationFile file, int k)
{
    return readDoubleMatrix(resultFilePath(projectFolder, iterationFileName(file, k)));
}

void writeComputationLog(const QString &projectFolder, const QStringList &log)
{
    const QString path = resultFilePath(projectFolder, QStringLiteral("computation_log.txt"));
    QByteArray text;
    for (const QString &line : log)
        text += line.toUtf8() + '\n';
    // The file used to be rewritten in place, so a longer file kept its tail;
    // the replacement keeps it too.
    const QFileInfo existing(path);
    if (existing.exists() && existing.size() > text.size()) {
        QFile file(path);
        if (file.open(QIODevice::ReadOnly) && file.seek(text.size()))
            text += file.readAll();
    }
    if (!writeFileAtomically(path, text.constData(), std::size_t(text.size())))
        qDebug() << "Error, unable to save";
}

void writeIterationFiles(const QString &projectFolder, const compResult &result, const compResult *written)
{
    QDir().mkpath(resultFolderPath(projectFolder));
    auto path = [&projectFolder](const QString &name) { return resultFilePath(projectFolder, name); };
    // The newest entry of a history is on disk when the written record has
    // the same iteration with the same shared data (which cannot change
    // while that record holds it).
    const auto onDisk = [written](const auto &history, auto member) {
        if (!written)
            return false;
        const auto &writtenHistory = written->*member;
        return writtenHistory.size() == history.size() &&
               writtenHistory.last().constData() == history.last().constData();
    };
    const auto writeNewest = [&](IterationFile file, const QVector<DoubleMatrix> &history,
                                 QVector<DoubleMatrix> compResult::*member) {
        if (!history.isEmpty() && !onDisk(history, member))
            writeDoubleMatrix(path(iterationFileName(file, history.size() - 1)), history.last());
    };
    const auto writeNewestRow = [&](IterationFile file, const QVector<QVector<double>> &history,
                                    QVector<QVector<double>> compResult::*member) {
        if (!history.isEmpty() && !onDisk(history, member))
            writeRow(path(iterationFileName(file, history.size() - 1)), history.last());
    };

    // X_k last: where it exists, every other file of iteration k is complete.
    writeNewest(IterationFile::Y, result.Y, &compResult::Y);
    writeNewest(IterationFile::Parameter, result.Parameter, &compResult::Parameter);

    // The kept solutions belong to the record's newest iteration.
    const int k = result.iterationCount() - 1;
    const bool sameIteration = written && written->iterationCount() == result.iterationCount();
    for (int i = 0; k >= 0 && i < result.solutions.size(); ++i) {
        const DoubleMatrix &solution = result.solutions[i];
        const bool solutionOnDisk = sameIteration && i < written->solutions.size() &&
                                    written->solutions[i].constData() == solution.constData();
        if (!solution.isEmpty() && !solutionOnDisk)
            writeDoubleMatrix(path(solutionFileName(k, i)), solution);
    }

    writeNewestRow(IterationFile::SSR, result.SSR, &compResult::SSR);
    writeNewestRow(IterationFile::Lambda, result.lambda, &compResult::lambda);
    if (!result.solutionTimes.isEmpty())
        writeRow(path(QStringLiteral("ode_time.csv")), result.solutionTimes);
    writeComputationLog(projectFolder, result.log);
    if (!result.sortIndex.isEmpty())
        writeIntMatrix(path(QStringLiteral("sortIndex.csv")), {result.sortIndex});
    writeNewest(IterationFile::X, result.X, &compResult::X);
}

void writeEndOfRunFiles(const QString &projectFolder, const compResult &result, const compResult *written)
{
    writeIterationFiles(projectFolder, result, written);
    if (!result.Y.isEmpty())
        writeOutputHistory(resultFilePath(projectFolder, QStringLiteral("Y.dat")), result.Y);
}

void writeOutputHistory(const QString &path, const QVector<DoubleMatrix> &outputs)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_5_12);
    stream << outputs;
    if (!writeFileAtomically(path, bytes.constData(), std::size_t(bytes.size())))
        qDebug() << "Error, unable to save";
}

bool readOutputHistory(const QString &path, QVector<DoubleMatrix> &outputs)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    QDataStream stream(&file);
    stream.setVersion(QDataStream::Qt_5_12);
    QVector<DoubleMatrix> read;
    stream >> read;
    if (stream.status() != QDataStream::Ok || !stream.atEnd())
        return false;
    outputs = read;
    return true;
}

QString moveResultsToHistory(const QString &projectFolder)
{
    const QString stamp =
            QDateTime::currentDateTimeUtc().toString().split(QLatin1Char(':')).join(QLatin1Char('_'));
    const QString target = projectFolder + QStringLiteral("/history/compResult ") + stamp;
    QDir().mkpath(target);
    const QDir from(resultFolderPath(projectFolder));
    const QDir to(target);

    moveFile(from, to, QStringLiteral("sortIndex.csv"));
    for (int k = 0;; ++k) {
        bool any = false;
        for (IterationFile file : kIterationFiles)
            any = moveFile(from, to, iterationFileName(file, k)) || any;
        for (int point : storedSolutionPoints(from, k))
            any = moveFile(from, to, solutionFileName(k, point)) || any;
        if (!any)
            break;
    }
    moveFile(from, to, QStringLiteral("ode_time.csv"));
    moveFile(from, to, QStringLiteral("computation_log.txt"));
    moveFile(from, to, QStringLiteral("polish_summary.csv"));
    return target;
}

bool loadResult(const QString &projectFolder, compResult &result)
{
    result = compResult();
    auto path = [&projectFolder](const QString &name) { return resultFilePath(projectFolder, name); };

    result.X = readHistory<DoubleMatrix>(projectFolder, IterationFile::X, readDoubleMatrix);
    result.Y = readHistory<DoubleMatrix>(projectFolder, IterationFile::Y, readDoubleMatrix);
    result.Parameter = readHistory<DoubleMatrix>(projectFolder, IterationFile::Parameter, readDoubleMatrix);
    result.SSR = readHistory<QVector<double>>(projectFolder, IterationFile::SSR, readRow);
    result.lambda = readHistory<QVector<double>>(projectFolder, IterationFile::Lambda, readRow);

    for (double index : readRow(path(QStringLiteral("sortIndex.csv"))))
        result.sortIndex << static_cast<int>(index);
    result.solutionTimes = readRow(path(QStringLiteral("ode_time.csv")));
    result.log = readLogLines(path(QStringLiteral("computation_log.txt")));

    const QDir folder(resultFolderPath(projectFolder));
    const int k = newestSolutionIteration(folder);
    if (k >= 0) {
        const QVector<int> points = storedSolutionPoints(folder, k);
        int count = result.X.isEmpty() ? 0 : result.X.last().size();
        for (int point : points)
            count = std::max(count, point + 1);
        result.solutions.resize(count);
        for (int point : points)
            result.solutions[point] = readDoubleMatrix(path(solutionFileName(k, point)));
    }
    return !result.X.isEmpty();
}
