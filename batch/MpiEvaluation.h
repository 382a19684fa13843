#pragma once

#include <QString>
#include <QStringList>

#include <cstdlib>

class ambrel_method;

// Whether an MPI launcher started this process (its environment says so).
inline bool startedByLauncher()
{
    for (const char *name : {"OMPI_COMM_WORLD_SIZE", "PMIX_RANK", "PMI_SIZE"})
        if (std::getenv(name))
            return true;
    return false;
}

// The batch tool under an MPI launcher (mpirun, srun): rank 0 runs the
// command as a single process does and spreads every model evaluation of a
// run over all ranks, itself included; the other ranks read the project,
// evaluate the chunks of rows rank 0 hands them and never write anything.
// In a build without MPI, or in a process no launcher started, there is one
// rank and nothing changes.

#ifdef AMBREL_WITH_MPI

// Starts MPI when a launcher started this process (with several ranks each
// rank's thread pool defaults to the processors the launcher bound it to);
// at its end rank 0 stops the other ranks and every rank ends MPI.
class MpiSession {
public:
    MpiSession(int &argc, char **&argv);
    ~MpiSession();
    MpiSession(const MpiSession &) = delete;
    MpiSession &operator=(const MpiSession &) = delete;
    // 0 without a launcher.
    int rank() const;
};

// A rank other than 0: serves rank 0 until it says stop; returns the exit
// status. options are the run's command-line options (for --threads).
int serveRankZero(const QString &folder, const QStringList &options);
// Rank 0 of several: checks that every rank reads the same model from folder
// and sets the engine's evaluator to hand out its rows. Throws InputError
// when a rank disagrees or cannot read the project.
void distributeEvaluations(ambrel_method &engine, const QString &folder);

#else

class MpiSession {
public:
    MpiSession(int &, char **&) {}
    int rank() const { return 0; }
};
inline int serveRankZero(const QString &, const QStringList &)
{
    return 0;
}
inline void distributeEvaluations(ambrel_method &, const QString &) {}

#endif
