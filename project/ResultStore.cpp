#include "project/ResultStore.h"

#include "project/AtomicFile.h"
#include "project/TableFiles.h"

#include "model/ParallelChunks.h"

#include <QDataStream>
#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTextStream>
#include <QThreadPool>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>

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

// The stored solution points of every iteration, from one listing of the folder.
QMap<int, QVector<int>> solutionPointsByIteration(const QDir &folder)
{
    static const QRegularExpression name(QStringLiteral("^ODE_sol_(\\d+)_(\\d+)\\.csv$"));
    QMap<int, QVector<int>> points;
    const QStringList files = folder.entryList({QStringLiteral("ODE_sol_*.csv")}, QDir::Files, QDir::NoSort);
    for (const QString &file : files) {
        const QRegularExpressionMatch match = name.match(file);
        if (match.hasMatch())
            points[match.captured(1).toInt()] << match.captured(2).toInt();
    }
    return points;
}

// The first row of a single-row file; empty for a missing file.
QVector<double> readRow(const QString &path)
{
    const DoubleMatrix matrix = readDoubleMatrix(path);
    return matrix.isEmpty() ? QVector<double>() : matrix.first();
}

// The matrix of a file that the writer finished: not empty and ending with
// the last row's line end. A kill during a write leaves an empty file or one
// cut inside a row; such a file counts as missing.
std::optional<DoubleMatrix> readCompleteMatrix(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray bytes = file.readAll();
    if (bytes.isEmpty() || !bytes.endsWith('\n'))
        return std::nullopt;
    return textToDoubleMatrix(QString::fromUtf8(bytes));
}

// The complete files of every stored iteration, k = 0, 1, ... up to the
// first missing or incomplete file.
QVector<DoubleMatrix> readHistory(const QString &projectFolder, IterationFile file, QStringList &incomplete)
{
    QVector<DoubleMatrix> history;
    for (int k = 0;; ++k) {
        const QString path = resultFilePath(projectFolder, iterationFileName(file, k));
        const std::optional<DoubleMatrix> matrix = readCompleteMatrix(path);
        if (!matrix) {
            if (QFile::exists(path))
                incomplete << iterationFileName(file, k);
            break;
        }
        history << *matrix;
    }
    return history;
}

// The first rows of single-row files.
QVector<QVector<double>> firstRows(const QVector<DoubleMatrix> &history)
{
    QVector<QVector<double>> rows;
    for (const DoubleMatrix &matrix : history)
        rows << matrix.value(0);
    return rows;
}

bool hasShape(const DoubleMatrix &matrix, int rows, int columns)
{
    if (matrix.size() != rows)
        return false;
    return std::all_of(matrix.begin(), matrix.end(),
                       [columns](const QVector<double> &row) { return row.size() == columns; });
}

// The number of leading iterations whose five files are all present and
// shaped like iteration 0 and the model.
int completeIterations(const compResult &r, int n, int p, int m, int q)
{
    int k = 0;
    while (k < r.X.size() && k < r.Y.size() && k < r.Parameter.size() && k < r.SSR.size() &&
           k < r.lambda.size() && hasShape(r.X[k], n, p) && hasShape(r.Y[k], n, m) &&
           hasShape(r.Parameter[k], n, q) && r.SSR[k].size() == n && r.lambda[k].size() == n)
        ++k;
    return k;
}

// Iteration k's five files are all present and agree with each other and the
// model, whatever their point count.
bool isWholeIteration(const compResult &r, int k, int p, int m, int q)
{
    if (k >= r.X.size() || k >= r.Y.size() || k >= r.Parameter.size() || k >= r.SSR.size() ||
        k >= r.lambda.size())
        return false;
    const int rows = r.X[k].size();
    return rows > 0 && hasShape(r.X[k], rows, p) && hasShape(r.Y[k], rows, m) &&
           hasShape(r.Parameter[k], rows, q) && r.SSR[k].size() == rows && r.lambda[k].size() == rows;
}

// Cuts the record back to its newest complete iteration (keeping the cluster
// that follows it when that is whole) and says what was dropped. A run with
// polishing (polishedLast) ends with one iteration of its minimisers, one row
// each, which is kept when whole. False when not even the first cluster is
// usable.
bool keepCompleteIterations(compResult &r, const ResultShape &shape, const QStringList &incomplete,
                            bool polishedLast, QString *note)
{
    auto say = [note](const QString &text) {
        if (note)
            *note = note->isEmpty() ? text : *note + QLatin1Char(' ') + text;
    };
    if (!incomplete.isEmpty())
        say(QStringLiteral("Incomplete result files (cut off by an interrupted write): %1.")
                    .arg(incomplete.join(QStringLiteral(", "))));
    if (r.X.isEmpty() || r.X.first().isEmpty()) {
        say(QStringLiteral("There is no complete X_0.csv."));
        return false;
    }
    const int n = r.X.first().size();
    const int p = shape.searchVariables >= 0 ? shape.searchVariables : r.X.first().first().size();
    if (!hasShape(r.X.first(), n, p)) {
        say(QStringLiteral("X_0.csv does not fit the model: it needs %1 columns (one per estimated "
                           "parameter) in every row.")
                    .arg(p));
        return false;
    }
    const int m = shape.outputs >= 0 ? shape.outputs : r.Y.value(0).value(0).size();
    const int q = shape.parameters >= 0 ? shape.parameters : r.Parameter.value(0).value(0).size();
    int complete = completeIterations(r, n, p, m, q);
    const int longest =
            std::max({int(r.Y.size()), int(r.Parameter.size()), int(r.SSR.size()), int(r.lambda.size())});
    if (polishedLast && complete + 1 == r.X.size() && complete + 1 == longest &&
        isWholeIteration(r, complete, p, m, q))
        ++complete;
    const int clusters = complete < r.X.size() && hasShape(r.X[complete], n, p) ? complete + 1 : complete;
    if (clusters < r.X.size() || complete < longest) {
        say(QStringLiteral("The files of iteration %1 are incomplete or do not fit the model: using "
                           "the stored clusters 0 to %2, the newest complete iteration being %3.")
                    .arg(complete)
                    .arg(clusters - 1)
                    .arg(complete - 1));
    } else if (!incomplete.isEmpty()) {
        say(QStringLiteral("Using the stored clusters 0 to %1.").arg(clusters - 1));
    }
    r.X.resize(clusters);
    r.Y.resize(complete);
    r.Parameter.resize(complete);
    r.SSR.resize(complete);
    r.lambda.resize(complete);
    return true;
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

// Moves the file into the target folder; returns false when the file is
// missing. A rename keeps the file's data where it is (a copy and a removal
// would cost a run's worth of writes, and on file systems without a journal
// the freshly freed inodes slow the next run's file creation); across file
// systems the file is copied and removed. A file that cannot be moved is kept.
bool moveFile(const QDir &from, const QDir &to, const QString &fileName)
{
    const QString source = from.filePath(fileName);
    if (!QFile::exists(source))
        return false;
    // The history folder appears only when there is something to move.
    QDir().mkpath(to.path());
    if (!QFile::rename(source, to.filePath(fileName)))
        qDebug() << "Error, unable to copy" << source;
    return true;
}

// The solutions of the newest iteration that has ODE_sol files: one entry per
// point; empty for a point without a complete file.
void loadSolutions(const QString &projectFolder, compResult &result)
{
    const QMap<int, QVector<int>> stored = solutionPointsByIteration(QDir(resultFolderPath(projectFolder)));
    if (stored.isEmpty())
        return;
    const int k = stored.lastKey();
    const int n = result.X.first().size();
    result.solutions.resize(n);
    for (int point : stored.last()) {
        if (point >= n)
            continue;
        const std::optional<DoubleMatrix> solution =
                readCompleteMatrix(resultFilePath(projectFolder, solutionFileName(k, point)));
        if (solution)
            result.solutions[point] = *solution;
    }
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

namespace {

// Same values bit for bit (NaN payloads and signed zeros included).
bool sameBits(const DoubleMatrix &a, const DoubleMatrix &b)
{
    if (a.constData() == b.constData())
        return true;
    if (a.size() != b.size())
        return false;
    for (int r = 0; r < a.size(); ++r)
        if (a[r].size() != b[r].size() ||
            std::memcmp(a[r].constData(), b[r].constData(), sizeof(double) * std::size_t(a[r].size())) != 0)
            return false;
    return true;
}

// One thread beside the writer's for the ODE_sol files. Writing them is
// mostly the kernel creating files, which two threads do in two thirds of
// the time or less, and the next iteration may wait for the files. Never
// destroyed: a writer may still use it while the program ends.
QThreadPool &solutionWritingPool()
{
    static QThreadPool *pool = [] {
        auto *created = new QThreadPool;
        created->setMaxThreadCount(1);
        return created;
    }();
    return *pool;
}

// The ODE_sol files of iteration k, shared out between this thread and the
// solution-writing thread when the run may use two threads. A solution that
// the written record of iteration k - 1 holds with the same values (a frozen
// point, or one solved again at the same place) is on disk already: its file
// gets a second name instead of being formatted and written again.
void writeSolutionFiles(const AtomicFolder &folder, int k, const compResult &result,
                        const compResult *written)
{
    const bool sameIteration = written && written->iterationCount() == k + 1;
    const bool previousIteration = written && written->iterationCount() == k;
    QVector<int> pending;
    for (int i = 0; k >= 0 && i < result.solutions.size(); ++i) {
        const DoubleMatrix &solution = result.solutions[i];
        const bool onDisk = sameIteration && i < written->solutions.size() &&
                            written->solutions[i].constData() == solution.constData();
        if (!solution.isEmpty() && !onDisk)
            pending << i;
    }
    const auto unchanged = [&](int i) {
        return previousIteration && i < written->solutions.size() &&
               sameBits(written->solutions[i], result.solutions[i]);
    };
    runInChunks(
            std::size_t(pending.size()), std::min(2, defaultThreadCount()),
            [&] {
                return [&](std::size_t begin, std::size_t end) {
                    for (std::size_t p = begin; p < end; ++p) {
                        const int i = pending[int(p)];
                        if (unchanged(i) &&
                            folder.addName(solutionFileName(k - 1, i), solutionFileName(k, i)))
                            continue;
                        writeDoubleMatrix(folder, solutionFileName(k, i), result.solutions[i]);
                    }
                };
            },
            &solutionWritingPool());
}

} // namespace

void writeIterationFiles(const QString &projectFolder, const compResult &result, const compResult *written)
{
    QDir().mkpath(resultFolderPath(projectFolder));
    const AtomicFolder folder(resultFolderPath(projectFolder));
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
            writeDoubleMatrix(folder, iterationFileName(file, history.size() - 1), history.last());
    };
    const auto writeNewestRow = [&](IterationFile file, const QVector<QVector<double>> &history,
                                    QVector<QVector<double>> compResult::*member) {
        if (!history.isEmpty() && !onDisk(history, member))
            writeDoubleMatrix(folder, iterationFileName(file, history.size() - 1), {history.last()});
    };

    // X_k last: where it exists, every other file of iteration k is complete.
    writeNewest(IterationFile::Y, result.Y, &compResult::Y);
    writeNewest(IterationFile::Parameter, result.Parameter, &compResult::Parameter);
    // The kept solutions belong to the record's newest iteration.
    writeSolutionFiles(folder, result.iterationCount() - 1, result, written);
    writeNewestRow(IterationFile::SSR, result.SSR, &compResult::SSR);
    writeNewestRow(IterationFile::Lambda, result.lambda, &compResult::lambda);
    if (!result.solutionTimes.isEmpty())
        writeDoubleMatrix(folder, QStringLiteral("ode_time.csv"), {result.solutionTimes});
    writeComputationLog(projectFolder, result.log);
    if (!result.sortIndex.isEmpty())
        writeIntMatrix(folder, QStringLiteral("sortIndex.csv"), {result.sortIndex});
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
    const QDir from(resultFolderPath(projectFolder));
    const QDir to(target);

    moveFile(from, to, QStringLiteral("sortIndex.csv"));
    const QMap<int, QVector<int>> solutions = solutionPointsByIteration(from);
    for (int k = 0;; ++k) {
        bool any = false;
        for (IterationFile file : kIterationFiles)
            any = moveFile(from, to, iterationFileName(file, k)) || any;
        for (int point : solutions.value(k))
            any = moveFile(from, to, solutionFileName(k, point)) || any;
        if (!any)
            break;
    }
    moveFile(from, to, QStringLiteral("ode_time.csv"));
    moveFile(from, to, QStringLiteral("computation_log.txt"));
    moveFile(from, to, QStringLiteral("polish_summary.csv"));
    return target;
}

bool loadResult(const QString &projectFolder, compResult &result, const ResultShape &shape, QString *note)
{
    result = compResult();
    QString loadNote;
    const auto tell = qScopeGuard([&] {
        if (note)
            *note = loadNote;
    });
    auto path = [&projectFolder](const QString &name) { return resultFilePath(projectFolder, name); };

    QStringList incomplete;
    result.X = readHistory(projectFolder, IterationFile::X, incomplete);
    result.Y = readHistory(projectFolder, IterationFile::Y, incomplete);
    result.Parameter = readHistory(projectFolder, IterationFile::Parameter, incomplete);
    result.SSR = firstRows(readHistory(projectFolder, IterationFile::SSR, incomplete));
    result.lambda = firstRows(readHistory(projectFolder, IterationFile::Lambda, incomplete));
    const bool polishedLast = QFile::exists(path(QStringLiteral("polish_summary.csv")));
    if (!keepCompleteIterations(result, shape, incomplete, polishedLast, &loadNote)) {
        result = compResult();
        result.log = readLogLines(path(QStringLiteral("computation_log.txt")));
        return false;
    }

    // The stored sort index belongs to the newest iteration written; after a
    // cut, or when it is not a permutation of the points, it is computed
    // afresh.
    const int n = result.X.first().size();
    const QVector<double> storedSort = readRow(path(QStringLiteral("sortIndex.csv")));
    QVector<bool> listed(n, false);
    bool sortFits = storedSort.size() == n && loadNote.isEmpty();
    for (int k = 0; sortFits && k < n; ++k) {
        const double index = storedSort[k];
        sortFits = index >= 0 && index < n && index == std::floor(index) && !listed[int(index)];
        if (sortFits) {
            listed[int(index)] = true;
            result.sortIndex << int(index);
        }
    }
    if (!sortFits)
        result.updateSortIndex();
    result.solutionTimes = readRow(path(QStringLiteral("ode_time.csv")));
    result.log = readLogLines(path(QStringLiteral("computation_log.txt")));
    loadSolutions(projectFolder, result);
    return true;
}
