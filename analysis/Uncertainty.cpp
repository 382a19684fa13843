#include "Uncertainty.h"

#include "engine/EngineSetup.h"
#include "engine/ambrel_method.h"
#include "project/ProjectModel.h"

#include <gsl/gsl_linalg.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

// Finite-difference step of a coordinate.
double stepFor(double x, double relative)
{
    return relative * std::max(1.0, std::abs(x));
}

bool allFinite(const DoubleMatrix &m, int columns)
{
    for (const QVector<double> &row : m) {
        if (row.size() != columns)
            return false;
        for (double v : row)
            if (!std::isfinite(v))
                return false;
    }
    return true;
}

// The singular value decomposition J = U S V^T of an m x p matrix (m >= p)
// by one-sided Jacobi rotations (accurate small singular values).
struct SingularValues {
    QVector<double> values; // descending
    DoubleMatrix v;         // p x p, columns are the right singular vectors
};

SingularValues singularValues(const DoubleMatrix &j, int p)
{
    const int m = j.size();
    gsl_matrix *a = gsl_matrix_alloc(std::size_t(m), std::size_t(p));
    gsl_matrix *v = gsl_matrix_alloc(std::size_t(p), std::size_t(p));
    gsl_vector *s = gsl_vector_alloc(std::size_t(p));
    for (int i = 0; i < m; ++i)
        for (int q = 0; q < p; ++q)
            gsl_matrix_set(a, std::size_t(i), std::size_t(q), j[i][q]);
    SingularValues result;
    if (gsl_linalg_SV_decomp_jacobi(a, v, s) == GSL_SUCCESS) {
        result.v = DoubleMatrix(p, QVector<double>(p));
        for (int q = 0; q < p; ++q) {
            result.values << gsl_vector_get(s, std::size_t(q));
            for (int r = 0; r < p; ++r)
                result.v[r][q] = gsl_matrix_get(v, std::size_t(r), std::size_t(q));
        }
    }
    gsl_vector_free(s);
    gsl_matrix_free(v);
    gsl_matrix_free(a);
    return result;
}

double conditionNumberOf(const DoubleMatrix &j, int p)
{
    const SingularValues svd = singularValues(j, p);
    if (svd.values.isEmpty())
        return kNaN;
    return svd.values.last() > 0 ? svd.values.first() / svd.values.last()
                                 : std::numeric_limits<double>::infinity();
}

// The covariance of x on the directions the data determine: with J D^-1 =
// U S V^T (D the column lengths), s^2 D^-1 V1 S1^-2 V1^T D^-1 over the
// determined singular values. undetermined holds the other directions, in x.
struct DeterminedCovariance {
    DoubleMatrix covariance;
    DoubleMatrix undetermined; // one row per direction, p entries
};

DeterminedCovariance determinedCovariance(const DoubleMatrix &j, int p, double variance)
{
    QVector<double> length(p, 0.0);
    for (const QVector<double> &row : j)
        for (int q = 0; q < p; ++q)
            length[q] += row[q] * row[q];
    DoubleMatrix scaled = j;
    for (QVector<double> &row : scaled)
        for (int q = 0; q < p; ++q)
            row[q] = length[q] > 0 ? row[q] / std::sqrt(length[q]) : 0.0;
    const SingularValues svd = singularValues(scaled, p);
    DeterminedCovariance result;
    result.covariance = DoubleMatrix(p, QVector<double>(p, 0.0));
    const double largest = svd.values.value(0, 0.0);
    for (int c = 0; c < svd.values.size(); ++c) {
        QVector<double> direction(p);
        for (int q = 0; q < p; ++q)
            direction[q] = length[q] > 0 ? svd.v[q][c] / std::sqrt(length[q]) : svd.v[q][c];
        const double sigma = svd.values[c];
        if (!(sigma > identifiabilityTolerance * largest)) {
            result.undetermined << direction;
            continue;
        }
        for (int a = 0; a < p; ++a)
            for (int b = 0; b < p; ++b)
                result.covariance[a][b] += variance * direction[a] * direction[b] / (sigma * sigma);
    }
    return result;
}

// A parameter is not identifiable when it moves along an undetermined
// direction: the derivative along it is not small against the parameter's
// derivatives along the coordinate directions of the scaled problem.
QVector<bool> identifiableParameters(const DoubleMatrix &g, const DoubleMatrix &undetermined)
{
    QVector<bool> identifiable;
    for (const QVector<double> &row : g) {
        double scale = 0;
        for (double v : row)
            scale = std::max(scale, std::abs(v));
        bool determined = true;
        for (const QVector<double> &direction : undetermined) {
            double along = 0, directionScale = 0;
            for (int q = 0; q < row.size(); ++q) {
                along += row[q] * direction[q];
                directionScale = std::max(directionScale, std::abs(direction[q]));
            }
            determined = determined && std::abs(along) <= 1e-6 * scale * directionScale * row.size();
        }
        identifiable << determined;
    }
    return identifiable;
}

// G C G^T.
DoubleMatrix mapCovariance(const DoubleMatrix &g, const DoubleMatrix &c)
{
    const int parameters = g.size(), p = c.size();
    DoubleMatrix mapped(parameters, QVector<double>(parameters, 0.0));
    for (int a = 0; a < parameters; ++a)
        for (int b = 0; b < parameters; ++b)
            for (int i = 0; i < p; ++i)
                for (int k = 0; k < p; ++k)
                    mapped[a][b] += g[a][i] * c[i][k] * g[b][k];
    return mapped;
}

} // namespace

AsymptoticUncertainty asymptoticUncertainty(const DoubleMatrix &jacobian, double ssr,
                                            const DoubleMatrix &transformationJacobian)
{
    using Status = AsymptoticUncertainty::Status;
    AsymptoticUncertainty u;
    const int m = jacobian.size();
    const int p = m > 0 ? jacobian.first().size() : 0;
    if (m == 0 || p == 0)
        return u;
    if (!allFinite(jacobian, p) || !allFinite(transformationJacobian, p) || !std::isfinite(ssr)) {
        u.status = Status::Unusable;
        return u;
    }
    u.degreesOfFreedom = m - p;
    if (u.degreesOfFreedom <= 0) {
        u.status = Status::TooFewObservations;
        return u;
    }
    u.residualVariance = ssr / u.degreesOfFreedom;
    u.conditionNumber = conditionNumberOf(jacobian, p);
    const DeterminedCovariance determined = determinedCovariance(jacobian, p, u.residualVariance);
    u.parameterIdentifiable = identifiableParameters(transformationJacobian, determined.undetermined);
    u.status = determined.undetermined.isEmpty() ? Status::Ok : Status::Singular;
    if (u.status == Status::Ok)
        u.searchCovariance = determined.covariance;

    const DoubleMatrix covariance = mapCovariance(transformationJacobian, determined.covariance);
    const int parameters = covariance.size();
    for (int a = 0; a < parameters; ++a)
        u.parameterStandardErrors << (u.parameterIdentifiable[a] ? std::sqrt(std::max(0.0, covariance[a][a]))
                                                                 : kNaN);
    u.parameterCorrelation = DoubleMatrix(parameters, QVector<double>(parameters, kNaN));
    for (int a = 0; a < parameters; ++a)
        for (int b = 0; b < parameters; ++b) {
            const double scale = u.parameterStandardErrors[a] * u.parameterStandardErrors[b];
            if (scale > 0)
                u.parameterCorrelation[a][b] = std::clamp(covariance[a][b] / scale, -1.0, 1.0);
        }
    return u;
}

DoubleMatrix transformationJacobian(const ParsedEquations &g, const QStringList &parameterNames,
                                    const QVector<double> &x)
{
    DoubleMatrix jacobian(parameterNames.size(), QVector<double>(x.size(), 0.0));
    for (int q = 0; q < x.size(); ++q) {
        const double h = stepFor(x[q], 1e-3);
        QVector<double> up = x, down = x;
        up[q] += h;
        down[q] -= h;
        const QVector<double> plus = applyTransformation(g, parameterNames, up);
        const QVector<double> minus = applyTransformation(g, parameterNames, down);
        for (int a = 0; a < parameterNames.size(); ++a)
            jacobian[a][q] = (plus.value(a, kNaN) - minus.value(a, kNaN)) / (2 * h);
    }
    return jacobian;
}

ModelJacobian modelJacobian(const ProjectModel &model, const QVector<double> &x)
{
    ModelJacobian result;
    const int p = x.size();
    if (!model.isValid() || p != model.searchVariableCount || model.observedValues.isEmpty())
        return result;
    ambrel_method engine;
    RunSettings settings;
    settings.integratorMessages = nullptr;
    configureEngine(engine, model, settings);
    engine.evaluator.useStage2 = true;

    // Rows: x, then x + h e_q and x - h e_q for every q.
    DoubleMatrix rows{x};
    QVector<double> steps;
    for (int q = 0; q < p; ++q) {
        steps << stepFor(x[q], 1e-4);
        rows << x << x;
        rows[rows.size() - 2][q] += steps[q];
        rows[rows.size() - 1][q] -= steps[q];
    }
    const QVector<PointEvaluation> evaluated = engine.evaluator.evaluate(rows);
    const int m = model.observedValues.size();
    result.outputs = evaluated.value(0).outputs;
    result.jacobian = DoubleMatrix(m, QVector<double>(p, kNaN));
    for (int q = 0; q < p; ++q) {
        const QVector<double> &plus = evaluated.value(1 + 2 * q).outputs;
        const QVector<double> &minus = evaluated.value(2 + 2 * q).outputs;
        for (int j = 0; j < m; ++j)
            result.jacobian[j][q] = (plus.value(j, kNaN) - minus.value(j, kNaN)) / (2 * steps[q]);
    }
    result.ssr = 0;
    for (int j = 0; j < m; ++j) {
        const double residual = result.outputs.value(j, kNaN) - model.observedValues[j];
        result.ssr += residual * residual;
    }
    result.ok = std::isfinite(result.ssr) && allFinite(result.jacobian, p);
    return result;
}
