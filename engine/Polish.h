#pragma once

#include "analysis/Uncertainty.h"
#include "engine/ClusterEvaluation.h"
#include "engine/LeastSquares.h"
#include "project/compResult.h"

#include <QStringList>
#include <QVector>

#include <functional>

class ambrel_method;

// The polishing stage: after the last Stage 2 iteration the finite points of
// the last iteration are grouped (k-means in x, the number of groups chosen by
// the silhouette, as in the result views), and the best point of each group is
// moved to a converged least-squares minimiser by Levenberg-Marquardt in x on
// the weighted residuals. The model is the Stage 2 (LSODA) model at a tighter
// tolerance, so that finite differences of it are smooth; the Jacobian's
// columns are evaluated in parallel like the cluster.

// The integrator tolerances (relative and absolute) of the polishing model.
constexpr double polishTolerance = 1e-10;
// The largest number of groups polished.
constexpr int polishMaxGroups = 10;

struct PolishInput {
    DoubleMatrix X;      // the last iteration's points, transformed coordinates
    QVector<double> ssr; // their SSR
    ClusterEvaluator evaluator;
    QVector<double> target;  // observed values
    QVector<double> weights; // one per observation; empty: all 1
    QVector<double> domainLower, domainUpper;
    // Asked before every evaluation; true stops the stage (the groups
    // finished so far are kept).
    std::function<bool()> stopRequested;
    // Polish several groups side by side on the thread pool (each evaluating
    // its points in turn); otherwise one after the other, each Jacobian's
    // points in parallel. Side by side, a stop drops every group in
    // progress.
    bool groupsSideBySide = true;
};

struct PolishedMinimiser {
    int group = 0;     // from 0; group 0 holds the cluster's best point
    int groupSize = 0; // points of the last iteration in the group
    int startRow = 0;  // the row of the last iteration it started from
    LeastSquaresResult fit;
    PointEvaluation evaluation; // at the polished x (tight tolerance)
    AsymptoticUncertainty uncertainty;
    qint64 modelEvaluations = 0;
};

struct PolishOutcome {
    int finitePoints = 0;
    int groups = 0;
    QVector<PolishedMinimiser> minimisers; // the groups finished, in group order
    bool stopped = false;                  // the stop flag ended the stage
    qint64 modelEvaluations = 0;
    double seconds = 0;
};

// The polishing model: the evaluator's Stage 2 model at polishTolerance.
ClusterEvaluator polishEvaluator(const ClusterEvaluator &evaluator);

// Groups the points and polishes the best of each group in turn.
PolishOutcome polishMinimisers(const PolishInput &input);

// The computation log's "Polish:" lines of an outcome.
QStringList polishLogLines(const PolishOutcome &outcome);

// The input of the stage for the engine's last iteration (its points, model,
// target, current weights and domain; its abort flag as the stop flag); no
// points when the record holds no iteration with SSR.
PolishInput polishInput(const ambrel_method &engine);

// True when the record's newest iteration holds polished minimisers (its row
// count differs from the iteration before it).
bool endsWithPolishedIteration(const compResult &result);

// Runs the stage on a finished run of the engine: polishes its last iteration,
// appends the minimisers as one more iteration of the record (one row each,
// lambda 0), logs the "Polish:" lines, sends the record and writes its files
// and "compResult/polish_summary.csv". With no finished group nothing is
// appended.
void runPolishStage(ambrel_method &engine);
