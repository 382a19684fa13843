#pragma once

#include <QString>
#include <QStringList>

class ambrel_method;

// The batch tool under an MPI launcher (mpirun, srun): rank 0 runs the
// command as a single process does and spreads every model evaluation of a
// run over all ranks, itself included; the other ranks read the project,
// evaluate the chunks of rows rank 0 hands them and never write anything.
// In a build without MPI, or in a process no launcher started, there is one
// rank and nothing changes.

#ifdef AMBREL_WITH_MPI

// Starts MPI when a launcher started this process; returns the rank (0
// without a launcher). With several ranks each rank's thread pool defaults to
// the processors the launcher bound it to.
int startMpi(int &argc, char **&argv);
// Rank 0: stops the other ranks; every rank: ends MPI. Returns status.
int stopMpi(int status);
// The number of ranks (1 without a launcher).
int mpiRanks();
// A rank other than 0: serves rank 0 until it says stop; returns the exit
// status. options are the run's command-line options (for --threads).
int serveRankZero(const QString &folder, const QStringList &options);
// Rank 0 of several: checks that every rank reads the same model from folder
// and sets the engine's evaluator to hand out its rows. Throws InputError
// when a rank disagrees or cannot read the project.
void distributeEvaluations(ambrel_method &engine, const QString &folder);

#else

inline int startMpi(int &, char **&)
{
    return 0;
}
inline int stopMpi(int status)
{
    return status;
}
inline int mpiRanks()
{
    return 1;
}
inline int serveRankZero(const QString &, const QStringList &)
{
    return 0;
}
inline void distributeEvaluations(ambrel_method &, const QString &) {}

#endif
