#pragma once

#include "engine/ClusterEvaluation.h"
#include "project/ProjectModel.h"

#include <QByteArray>
#include <QString>
#include <QVector>

// The messages that rank 0 and the other ranks of a batch run exchange, as
// byte arrays. Doubles travel as their IEEE bits, so a point evaluated on
// another rank arrives exactly as it was computed there.

// A fingerprint of the inputs that define the model evaluation (the ODE and
// auxiliary texts, the parameter specification, g and its inverse, the dose
// and observation tables). Ranks with equal fingerprints evaluate the same
// function.
QByteArray modelFingerprint(const ProjectInputs &inputs);

// What rank 0 sends before a run: the fingerprint of its model and the
// integrator settings, so that every rank evaluates with the same ones.
struct EvaluationSetup {
    QByteArray fingerprint;
    double stage1RelativeTolerance = 0;
    double stage1AbsoluteTolerance = 0;
    qint32 timeLimitMs = 0;
};
QByteArray encodeSetup(const EvaluationSetup &setup);
bool decodeSetup(const QByteArray &bytes, EvaluationSetup &setup);

// A rank's answer to the setup.
struct SetupReply {
    enum Status : qint32 { Ready = 0, DifferentModel = 1, Unreadable = 2 };
    qint32 status = Ready;
    qint32 threads = 1; // its evaluation threads
    QString message;    // why it could not read the project
};
QByteArray encodeReply(const SetupReply &reply);
bool decodeReply(const QByteArray &bytes, SetupReply &reply);

// A chunk of work: the stage to evaluate with and the rows (transformed
// coordinates).
struct WorkChunk {
    bool stage2 = false;
    DoubleMatrix rows;
};
QByteArray encodeWork(const WorkChunk &chunk);
bool decodeWork(const QByteArray &bytes, WorkChunk &chunk);

// The evaluated rows of a chunk, in its order.
QByteArray encodeResults(const QVector<PointEvaluation> &points);
// False (and points unspecified) for a message that is not expectedRows
// complete evaluations.
bool decodeResults(const QByteArray &bytes, int expectedRows, QVector<PointEvaluation> &points);
