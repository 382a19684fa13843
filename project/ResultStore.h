#pragma once

#include "project/compResult.h"

#include <QString>

// The file form of a run's result record. Every file lies in the "compResult"
// sub-folder of the project folder; matrices go through the CSV matrix
// writers (one matrix row per line, 16 significant digits). Per iteration k
// and point i:
//
//   X_k.csv, Y_k.csv, Parameter_k.csv   one row per point
//   R_k.csv, lambda_k.csv               one row: the SSR / lambda of every point
//   ODE_sol_k_i.csv                     the kept model solution of point i:
//                                       one row per solution time, one column
//                                       per state
//   ode_time.csv                        one row: the solution time points
//   sortIndex.csv                       one row of integers: the record's sort index
//   computation_log.txt                 one log entry per line, each ended by "\n"
//   Y.dat                               the whole output history in a QDataStream
//                                       (see writeOutputHistory), end of run only
//
// Writers never report failure to the caller: a file that cannot be written
// gives the table writer's debug line and the run goes on. Every file is
// replaced at once (see AtomicFile.h), so a reader never sees half of one.

// The per-iteration files, named "<prefix>k.csv" with the prefixes "X_",
// "Y_", "Parameter_", "R_" and "lambda_".
enum class IterationFile { X, Y, Parameter, SSR, Lambda };

// The name of iteration k's file, e.g. "X_3.csv".
QString iterationFileName(IterationFile file, int k);

// "compResult/" followed by the file name: where a result file lies inside
// the project folder.
QString resultFileRelativePath(const QString &fileName);

// The project folder followed by "/compResult/" and the file name.
QString resultFilePath(const QString &projectFolder, const QString &fileName);

// The number of stored iterations of a file kind: k = 0, 1, ... up to the
// first missing file.
int storedIterationCount(const QString &projectFolder, IterationFile file);

// The matrix stored for iteration k (R and lambda files hold one row); empty
// for a missing file.
DoubleMatrix readIterationFile(const QString &projectFolder, IterationFile file, int k);

// The files of the newest iteration: Y and Parameter from the newest entry
// of each history (a history without entries writes nothing), the ODE_sol
// files of every point with a non-empty solution under the record's newest
// iteration number (X's; none without X entries), R and lambda from their
// newest entries, ode_time.csv when it has values, the computation log,
// sortIndex.csv when it has values and last X from its newest entry, so that
// an X file marks an iteration whose files are all complete. Creates the
// "compResult" folder when missing.
// written, when given, is a record whose files are on disk already: the
// files whose content is the same shared data as its entries of the same
// iteration are not written again (the end of a run rewrites little more
// than the log).
void writeIterationFiles(const QString &projectFolder, const compResult &result,
                         const compResult *written = nullptr);

// The iteration files once more, then Y.dat when the record has outputs. After
// an abort at iteration 0 every history is empty, so only the log (and the
// solution times and sort index, if the record holds any) is written.
void writeEndOfRunFiles(const QString &projectFolder, const compResult &result,
                        const compResult *written = nullptr);

// Writes the log to "computation_log.txt": every line, each followed by "\n",
// from the start of the file. The log only grows during a run, so each write
// replaces the previous content; a log shorter than the file keeps the
// file's tail after it.
void writeComputationLog(const QString &projectFolder, const QStringList &log);

// Y.dat: a QDataStream (format Qt 5.12) holding the output history as one
// QVector<DoubleMatrix>, iteration by iteration, one row per point. The reader
// returns false and leaves outputs unchanged for a missing or damaged file.
void writeOutputHistory(const QString &path, const QVector<DoubleMatrix> &outputs);
bool readOutputHistory(const QString &path, QVector<DoubleMatrix> &outputs);

// Moves the results of an earlier run out of "compResult" into
// "history/compResult <UTC time>" (the current UTC time in Qt's default text
// format with every ":" replaced by "_"): sortIndex.csv, then for k = 0, 1, ...
// while any file of iteration k exists its R, lambda, X, Y, Parameter and
// ODE_sol files, then ode_time.csv, computation_log.txt and
// polish_summary.csv. Each file is copied
// and then removed; a file whose copy fails stays where it is. Other files
// (Y.dat, the window's Jacobian files) are not touched. Returns the path of
// the history folder.
QString moveResultsToHistory(const QString &projectFolder);

// The sizes a stored result must have to fit a model; -1 takes the size
// from iteration 0's files instead.
struct ResultShape {
    int searchVariables = -1; // columns of X
    int outputs = -1;         // columns of Y (one per observation)
    int parameters = -1;      // columns of Parameter
};

// Replaces the record by the stored result: X, Y, Parameter, SSR (R files) and
// lambda, each read for k = 0, 1, ... up to its first missing or incomplete
// file (empty, or cut inside a row as a kill during a write leaves it). Every
// matrix is checked against iteration 0's point count and against the shape;
// the record keeps the iterations up to the newest complete one (all five
// files whole) and the cluster after it when that is whole too, and *note
// says what was dropped (empty when nothing was). Then the sort index
// (recomputed when it does not fit), the solution time points, the
// computation log, and the solutions of the newest iteration that has
// ODE_sol files (one entry per point; empty for a point without a complete
// file). Returns true when a usable X_0 was found; *note says why not.
bool loadResult(const QString &projectFolder, compResult &result, const ResultShape &shape = {},
                QString *note = nullptr);
