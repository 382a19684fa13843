// One step of the cluster: for every point a regularised Gauss-Newton step
// whose Jacobian is approximated by linear regression over the cluster
// itself (no derivatives of the model are taken).
#pragma once

#include "engine/LinearSolves.h"

#include <QVector>

struct StepSettings {
    Vector target;      // observation target y*, m entries
    Vector domainLower; // per parameter, transformed coordinates
    Vector domainUpper;
    double targetPerturbation = 0.1;   // d: invalid points aim at y* scaled by [1-d, 1+d]
    bool uniformNeighbourhood = false; // every valid neighbour weighs 1
};

struct StepResult {
    Matrix steps; // n x p; a point that gets no step has a zero row
    // The last Jacobian computed (m x p): the local one of the last point
    // fitted locally or the global one if an invalid point came later.
    // 0 x 0 when no point needed a Jacobian.
    Matrix lastJacobian;
};

// A point's output row is valid when every entry is a finite number.
QVector<bool> validOutputs(const Matrix &Y);

// Neighbourhood weights W (n x n): for valid i != k, 1 / D with D the squared
// distance in domain-range units (or 1 with the uniform switch); 0 on the
// diagonal and for any pair with an invalid point. Identical valid points
// get an infinite weight, on purpose: the NaN it produces in the local fit
// makes the iteration reject that step.
Matrix neighbourhoodWeights(const Matrix &X, const QVector<bool> &valid, const Vector &domainLower,
                            const Vector &domainUpper, bool uniformNeighbourhood);

// The global linear model Y ~ X J^T + b over the rows whose mask is set,
// fitted output by output with cgne. Returns the m x (p+1) matrix [J | b].
Matrix globalLinearModel(const Matrix &X, const Matrix &Y, const QVector<bool> &updateMask);

// The step of every point of the cluster.
//   X: n x p cluster; Y: n x m outputs (a failed evaluation is a NaN row);
//   updateMask, lambda: n entries.
// Valid points with the mask set are stepped with their local weighted
// Jacobian towards y*; invalid points (mask or not) are pulled by the global
// linear model towards a target perturbed with rand(); valid points with the
// mask clear get no step. Writes "Matrix calc time " with the processor time
// in seconds to the debug output.
// The points are stepped in parallel on `threads` threads (0: as many as the
// global pool has; 1: the calling thread alone). The rand() draws are taken
// in point order first, so the steps are the same bits for any thread count.
StepResult computeSteps(const Matrix &X, const Matrix &Y, const QVector<bool> &updateMask,
                        const Vector &lambda, const StepSettings &settings, int threads = 0);
