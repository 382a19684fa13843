// Screening of the initial cluster after its first evaluation: points whose
// evaluation failed or whose fit is far worse than the best are re-sampled
// uniformly in the domain until the cluster is full or the tries are used up,
// then the run is allowed to go on or told to abort.
//
// Free of threads and files: the engine hands in the first evaluation and a
// callback that evaluates re-sampled points, and appends the returned log
// lines to its computation log.
#pragma once

#include "engine/LinearSolves.h"

#include <QStringList>
#include <QVector>

#include <cstdint>
#include <functional>
#include <random>

using OutputRows = QVector<QVector<double>>;

struct InitialClusterScreeningInput {
    Matrix X0;          // n x p, transformed coordinates
    OutputRows outputs; // first evaluation, one row per point (empty or NaN: failed)
    Vector domainLower; // p entries, transformed coordinates
    Vector domainUpper;
    int maxTries = 100;
    bool stricterCriteria = false; // also require SSR below the first median
    // SSR of one output row; NaN for a failed or mis-sized row.
    std::function<double(const QVector<double> &)> ssr;
    // Evaluates the rows of a matrix of points; may return fewer or more
    // rows than asked (the round's points are then discarded).
    std::function<OutputRows(const Matrix &)> evaluate;
};

struct InitialClusterScreeningResult {
    Matrix X0;          // with the re-sampled rows written in
    OutputRows outputs; // likewise
    QVector<double> ssr;
    QVector<bool> accepted; // rejected points that were never replaced stay false
    // Rows that received a re-sampled point, ascending: their untransformed
    // parameters must be recomputed by the caller.
    QVector<int> replacedRows;
    int numAlive = 0;
    int rounds = 0;       // re-sampling rounds done
    QStringList logLines; // for the computation log, in order
    bool abortASAP = false;
    // With abortASAP: the log line that says why the run cannot go on.
    QString refusal;
};

InitialClusterScreeningResult screenInitialCluster(const InitialClusterScreeningInput &input,
                                                   std::mt19937_64 &generator);

// Sum over j of (output[j] - target[j])^2; NaN when the lengths differ.
double sumOfSquaredResiduals(const QVector<double> &output, const QVector<double> &target);

// Uniform in [0, 1): a 64-bit draw times 2^-64, with a result of 1.0
// (from rounding) replaced by the largest double below 1.0.
double unitFromBits(std::uint64_t bits);
double uniformUnit(std::mt19937_64 &generator);
