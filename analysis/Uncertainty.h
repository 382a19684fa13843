#pragma once

#include "model/Matrices.h"
#include "model/ParameterSpecification.h"

#include <QStringList>
#include <QVector>

struct ProjectModel;

// Asymptotic (linearised least-squares) uncertainty of the estimate at one
// point: with J the Jacobian of the weighted residuals in the search
// coordinates x (m outputs by p search variables) and s^2 = SSR / (m - p),
// the covariance of x is s^2 (J^T J)^-1; it reaches the parameters through
// the Jacobian G of g (parameters by search variables) as G Cov G^T.
//
// The inverse comes from the singular value decomposition of J with its
// columns scaled to unit length. Directions whose scaled singular value is
// below identifiabilityTolerance times the largest are not determined by the
// data (status Singular): a parameter that moves along such a direction is
// not identifiable (NaN standard error); the others still get theirs, from
// the pseudo-inverse on the determined directions.
struct AsymptoticUncertainty {
    enum class Status { Ok, NoJacobian, Unusable, TooFewObservations, Singular };
    Status status = Status::NoJacobian;
    int degreesOfFreedom = 0;
    double residualVariance = 0;
    DoubleMatrix searchCovariance;           // p x p; empty unless Ok
    QVector<double> parameterStandardErrors; // one per parameter; NaN: not identifiable
    QVector<bool> parameterIdentifiable;     // one per parameter
    DoubleMatrix parameterCorrelation;       // NaN where a standard error is 0 or NaN
    // Largest over smallest singular value of J (unscaled); infinite when J
    // has a zero singular value.
    double conditionNumber = 0;
};
constexpr double identifiabilityTolerance = 1e-8;

AsymptoticUncertainty asymptoticUncertainty(const DoubleMatrix &jacobian, double ssr,
                                            const DoubleMatrix &transformationJacobian);

// G: the derivatives of the parameters (g of x) with respect to each search
// variable at x, by central differences.
DoubleMatrix transformationJacobian(const ParsedEquations &g, const QStringList &parameterNames,
                                    const QVector<double> &x);

// The Jacobian of the model outputs at x by central differences, each output
// from the Stage 2 (LSODA) model with unit weights, evaluated in parallel;
// outputs and ssr are those of x itself. ok is false when the model is not
// usable or an evaluation failed.
struct ModelJacobian {
    DoubleMatrix jacobian; // outputs by search variables
    QVector<double> outputs;
    double ssr = 0;
    bool ok = false;
};
ModelJacobian modelJacobian(const ProjectModel &model, const QVector<double> &x);
