#pragma once

#include "model/Matrices.h"

#include <QString>
#include <QVector>

#include <functional>

// Bounded-iteration Levenberg-Marquardt on a nonlinear least-squares problem
// min_x sum_j r_j(x)^2, by GSL's trust-region solver. The residuals and their Jacobian come from the caller,
// who may evaluate the Jacobian's columns in parallel.
struct LeastSquaresProblem {
    int residualCount = 0;
    // The residuals at x; false when they cannot be computed there (a failed
    // model evaluation): the solver then treats x as a rejected trial point.
    std::function<bool(const QVector<double> &x, QVector<double> &residuals)> residuals;
    // The Jacobian of the residuals at x (residualCount rows, one column per
    // coordinate); false when it cannot be computed.
    std::function<bool(const QVector<double> &x, DoubleMatrix &jacobian)> jacobian;
    // Asked before every evaluation; true ends the solve at once.
    std::function<bool()> stopRequested;
    // The typical size of each coordinate's moves, for the step test (all 1
    // when empty).
    QVector<double> scale;
};

struct LeastSquaresSettings {
    int maxIterations = 100;
    // Converged when the Gauss-Newton step is this small against the
    // statistical uncertainty (the relative offset of Bates and Watts:
    // sqrt(|P r|^2 / p) / sqrt(|r - P r|^2 / (m - p)), P the projection onto
    // the columns of J).
    double relativeOffset = 1e-5;
    // Also converged when no coordinate moved more than this times its scale.
    double stepTolerance = 1e-10;
};

enum class LeastSquaresStop {
    Converged,        // relative offset below its tolerance
    SmallStep,        // the last step was negligible
    NoProgress,       // no trial step lowered the SSR any more, or trial steps became negligible
    IterationLimit,   // maxIterations reached
    EvaluationFailed, // the residuals at the start or a Jacobian failed
    Stopped,          // stopRequested
};
QString leastSquaresStopText(LeastSquaresStop stop);

struct LeastSquaresResult {
    LeastSquaresStop stop = LeastSquaresStop::EvaluationFailed;
    // The best point reached, with its residuals and Jacobian (empty when the
    // start could not be evaluated).
    QVector<double> x;
    QVector<double> residuals;
    DoubleMatrix jacobian;
    double startSsr = 0;
    double ssr = 0;
    int iterations = 0; // accepted steps
    int residualEvaluations = 0;
    int jacobianEvaluations = 0;
};

LeastSquaresResult levenbergMarquardt(const LeastSquaresProblem &problem, const QVector<double> &start,
                                      const LeastSquaresSettings &settings = LeastSquaresSettings());
