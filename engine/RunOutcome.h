#pragma once

#include <QMetaType>
#include <QStringList>

// How a run of the engine ended, for callers that must act on it (exit
// statuses, the window's messages) without reading the computation log.
struct RunOutcome {
    enum class Status {
        Finished,           // every iteration was done
        Aborted,            // stopped on request; the finished iterations are kept
        RefusedAtScreening, // the initial cluster cannot be iterated on
        Failed,             // an iteration threw; the record's histories are emptied
    };
    Status status = Status::Finished;
    // The iterations the record holds at the end, from 0 (those before a
    // restart included).
    int iterationsDone = 0;
    // Rows integrated during the run (NaN rows of frozen points excluded).
    qint64 modelEvaluations = 0;
    double wallSeconds = 0.0;
    // The computation log's lines that explain a refusal or a failure.
    QStringList messages;
};

Q_DECLARE_METATYPE(RunOutcome)
