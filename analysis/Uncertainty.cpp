#include "Uncertainty.h"

#include "engine/EngineSetup.h"
#include "engine/ambrel_method.h"
#include "project/ProjectModel.h"

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

// Inverse of a symmetric positive definite matrix by its Cholesky factor;
// empty when a pivot is not clearly positive (relative to the diagonal).
DoubleMatrix choleskyInverse(const DoubleMatrix &a)
{
    const int n = a.size();
    double largest = 0;
    for (int i = 0; i < n; ++i)
        largest = std::max(largest, std::abs(a[i][i]));
    DoubleMatrix l(n, QVector<double>(n, 0.0));
    for (int j = 0; j < n; ++j) {
        double d = a[j][j];
        for (int k = 0; k < j; ++k)
            d -= l[j][k] * l[j][k];
        if (!(d > 1e-13 * largest))
            return {};
        l[j][j] = std::sqrt(d);
        for (int i = j + 1; i < n; ++i) {
            double s = a[i][j];
            for (int k = 0; k < j; ++k)
                s -= l[i][k] * l[j][k];
            l[i][j] = s / l[j][j];
        }
    }
    // Columns of L^-1, then A^-1 = L^-T L^-1.
    DoubleMatrix li(n, QVector<double>(n, 0.0));
    for (int c = 0; c < n; ++c)
        for (int i = c; i < n; ++i) {
            double s = i == c ? 1.0 : 0.0;
            for (int k = c; k < i; ++k)
                s -= l[i][k] * li[k][c];
            li[i][c] = s / l[i][i];
        }
    DoubleMatrix inverse(n, QVector<double>(n, 0.0));
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            for (int k = std::max(i, j); k < n; ++k)
                inverse[i][j] += li[k][i] * li[k][j];
    return inverse;
}

DoubleMatrix normalMatrix(const DoubleMatrix &j, int p)
{
    DoubleMatrix jtj(p, QVector<double>(p, 0.0));
    for (const QVector<double> &row : j)
        for (int a = 0; a < p; ++a)
            for (int b = 0; b < p; ++b)
                jtj[a][b] += row[a] * row[b];
    return jtj;
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
    const DoubleMatrix inverse = choleskyInverse(normalMatrix(jacobian, p));
    if (inverse.isEmpty()) {
        u.status = Status::Singular;
        return u;
    }
    u.residualVariance = ssr / u.degreesOfFreedom;
    u.searchCovariance = inverse;
    for (QVector<double> &row : u.searchCovariance)
        for (double &v : row)
            v *= u.residualVariance;

    const DoubleMatrix covariance = mapCovariance(transformationJacobian, u.searchCovariance);
    const int parameters = covariance.size();
    for (int a = 0; a < parameters; ++a)
        u.parameterStandardErrors << std::sqrt(std::max(0.0, covariance[a][a]));
    u.parameterCorrelation = DoubleMatrix(parameters, QVector<double>(parameters, kNaN));
    for (int a = 0; a < parameters; ++a)
        for (int b = 0; b < parameters; ++b) {
            const double scale = u.parameterStandardErrors[a] * u.parameterStandardErrors[b];
            if (scale > 0)
                u.parameterCorrelation[a][b] = std::clamp(covariance[a][b] / scale, -1.0, 1.0);
        }
    u.status = Status::Ok;
    return u;
}

DoubleMatrix transformationJacobian(const ParsedEquations &g, const QStringList &parameterNames,
                                    const QVector<double> &x)
{
    DoubleMatrix jacobian(parameterNames.size(), QVector<double>(x.size(), 0.0));
    for (int q = 0; q < x.size(); ++q) {
        const double h = stepFor(x[q], 1e-6);
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
