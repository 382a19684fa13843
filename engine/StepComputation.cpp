#include "engine/StepComputation.h"

#include <boost/numeric/ublas/matrix_proxy.hpp>

#include <QDebug>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <limits>

namespace {

// Scratch storage of one step computation, sized once and reused by every
// point and output so that the small solves allocate nothing.
struct Scratch {
    std::size_t p = 0;
    std::size_t m = 0;
    std::vector<double> normal;               // p x p: weighted normal matrix of a local fit
    std::vector<double> crossTerms;           // p x m: dX^T W dY of a local fit, all outputs
    std::vector<double> localSolution;        // p x m: its columns are the local Jacobian's rows
    std::vector<double> displacement;         // p: X_k - X_i
    std::vector<double> weightedDisplacement; // p x n: w_k (X_k - X_i), used rows only
    std::vector<double> outputChange;         // n x m: Y_k - Y_i, used rows only
    std::vector<double> residual;             // m: right-hand side of the step
    std::vector<double> stepNormal;           // p x p: J^T J, then regularised
    std::vector<double> stepRhs;              // p: J^T r
    ConjugateGradientWorkspace cg;
    ConjugateGradientColumnsWorkspace cgColumns;

    Scratch(std::size_t parameters, std::size_t outputs, std::size_t points)
        : p(parameters)
        , m(outputs)
        , normal(p * p)
        , crossTerms(p * m)
        , localSolution(p * m)
        , displacement(p)
        , weightedDisplacement(p * points)
        , outputChange(points * m)
        , residual(m)
        , stepNormal(p * p)
        , stepRhs(p)
    {
        cg.resize(p);
        cgColumns.resize(p, m);
    }
};

// Solves (J^T J, regularised by lambda) step = J^T r by CG capped at rows(J).
void regularisedStep(const Matrix &jacobian, const double *residual, double lambda, double *step,
                     Scratch &scratch)
{
    const std::size_t p = jacobian.size2();
    formNormalMatrix(jacobian, scratch.stepNormal.data());
    formNormalRhs(jacobian, residual, scratch.stepRhs.data());
    regulariseDiagonal(scratch.stepNormal.data(), p, lambda);
    conjugateGradients(scratch.stepNormal.data(), scratch.stepRhs.data(), p, jacobian.size1(), step,
                       scratch.cg);
}

// Local Jacobian of point i: for each output j the weighted least-squares
// fit dX a ~ dY_j with row weights W(i, k). This is CGNE on the weighted
// design matrix sqrt(W) dX (n rows, hence the cap n); its normal matrix
// dX^T W dX does not depend on j and is formed once for all m outputs, and
// the m solves run side by side (each with its own stopping rule).
// Rows of weight 0 (the point itself, invalid points) are skipped, so NaN
// outputs of invalid points never enter the sums.
void localJacobian(const Matrix &X, const Matrix &Y, const Matrix &weights, std::size_t i, Matrix &jacobian,
                   Scratch &scratch)
{
    const std::size_t n = X.size1();
    const std::size_t p = scratch.p;
    const std::size_t m = scratch.m;
    double *normal = scratch.normal.data();
    double *cross = scratch.crossTerms.data();
    double *dx = scratch.displacement.data();
    std::fill(scratch.normal.begin(), scratch.normal.end(), 0.0);

    const double *xi = &X.data()[i * p];
    const double *yi = &Y.data()[i * m];
    const double *wi = &weights.data()[i * n];
    std::size_t used = 0;
    for (std::size_t k = 0; k < n; ++k)
        used += wi[k] != 0.0 ? 1 : 0;

    // The used rows, compacted: (W dX)^T as p x used and dY as used x m, so
    // that dX^T W dY is one blocked product.
    double *weightedDisplacement = scratch.weightedDisplacement.data();
    double *outputChange = scratch.outputChange.data();
    std::size_t row = 0;
    for (std::size_t k = 0; k < n; ++k) {
        const double w = wi[k];
        if (w == 0.0)
            continue;
        const double *xk = &X.data()[k * p];
        const double *yk = &Y.data()[k * m];
        for (std::size_t q = 0; q < p; ++q)
            dx[q] = xk[q] - xi[q];
        double *dy = outputChange + row * m;
        for (std::size_t j = 0; j < m; ++j)
            dy[j] = yk[j] - yi[j];
        for (std::size_t q = 0; q < p; ++q) {
            const double wdx = w * dx[q];
            weightedDisplacement[q * used + row] = wdx;
            double *normalRow = normal + q * p;
            for (std::size_t s = q; s < p; ++s)
                normalRow[s] += wdx * dx[s];
        }
        ++row;
    }
    for (std::size_t q = 0; q < p; ++q)
        for (std::size_t s = 0; s < q; ++s)
            normal[q * p + s] = normal[s * p + q];
    multiplyRowMajor(weightedDisplacement, outputChange, p, used, m, cross);

    double *solution = scratch.localSolution.data();
    conjugateGradientsColumns(normal, cross, p, m, n, solution, scratch.cgColumns);
    for (std::size_t j = 0; j < m; ++j)
        for (std::size_t q = 0; q < p; ++q)
            jacobian(j, q) = solution[q * m + j];
}

bool sizesAgree(const Matrix &X, const Matrix &Y, const QVector<bool> &updateMask, const Vector &lambda,
                const StepSettings &settings)
{
    const std::size_t n = X.size1();
    const std::size_t p = X.size2();
    if (Y.size1() == n && std::size_t(updateMask.size()) == n && lambda.size() == n &&
        settings.target.size() == Y.size2() && settings.domainLower.size() == p &&
        settings.domainUpper.size() == p)
        return true;
    qDebug() << "Step computation error: sizes do not agree."
             << "X:" << X.size1() << X.size2() << "Y:" << Y.size1() << Y.size2()
             << "mask:" << updateMask.size() << "lambda:" << lambda.size()
             << "target:" << settings.target.size() << "bounds:" << settings.domainLower.size()
             << settings.domainUpper.size();
    return false;
}

} // namespace

QVector<bool> validOutputs(const Matrix &Y)
{
    const double largest = std::numeric_limits<double>::max();
    QVector<bool> valid(int(Y.size1()), true);
    for (std::size_t i = 0; i < Y.size1(); ++i) {
        for (std::size_t j = 0; j < Y.size2(); ++j) {
            const double value = Y(i, j);
            // Written so that NaN fails the test too.
            if (!(std::fabs(value) <= largest)) {
                valid[int(i)] = false;
                break;
            }
        }
    }
    return valid;
}

Matrix neighbourhoodWeights(const Matrix &X, const QVector<bool> &valid, const Vector &domainLower,
                            const Vector &domainUpper, bool uniformNeighbourhood)
{
    const std::size_t n = X.size1();
    const std::size_t p = X.size2();
    Matrix weights(n, n, 0.0);
    std::vector<double> range(p);
    for (std::size_t q = 0; q < p; ++q)
        range[q] = domainUpper[q] - domainLower[q];
    for (std::size_t i = 0; i < n; ++i) {
        if (!valid[int(i)])
            continue;
        for (std::size_t k = i + 1; k < n; ++k) {
            if (!valid[int(k)])
                continue;
            double distance = 1.0;
            if (!uniformNeighbourhood) {
                distance = 0.0;
                for (std::size_t q = 0; q < p; ++q) {
                    const double scaled = (X(i, q) - X(k, q)) / range[q];
                    distance += scaled * scaled;
                }
            }
            weights(i, k) = weights(k, i) = 1.0 / distance;
        }
    }
    return weights;
}

Matrix globalLinearModel(const Matrix &X, const Matrix &Y, const QVector<bool> &updateMask)
{
    const std::size_t n = X.size1();
    const std::size_t p = X.size2();
    const std::size_t m = Y.size2();
    std::size_t rows = 0;
    for (std::size_t i = 0; i < n; ++i)
        rows += updateMask[int(i)] ? 1 : 0;

    Matrix design(rows, p + 1);
    Matrix outputs(rows, m);
    std::size_t row = 0;
    for (std::size_t i = 0; i < n; ++i) {
        if (!updateMask[int(i)])
            continue;
        for (std::size_t q = 0; q < p; ++q)
            design(row, q) = X(i, q);
        design(row, p) = 1.0;
        for (std::size_t j = 0; j < m; ++j)
            outputs(row, j) = Y(i, j);
        ++row;
    }

    // One cgne per output; they share the normal matrix, formed once.
    const std::size_t cols = p + 1;
    std::vector<double> normal(cols * cols);
    std::vector<double> rhs(cols);
    std::vector<double> column(rows);
    ConjugateGradientWorkspace workspace;
    formNormalMatrix(design, normal.data());
    Matrix model(m, cols, 0.0);
    for (std::size_t j = 0; j < m; ++j) {
        for (std::size_t k = 0; k < rows; ++k)
            column[k] = outputs(k, j);
        formNormalRhs(design, column.data(), rhs.data());
        conjugateGradients(normal.data(), rhs.data(), cols, rows, &model.data()[j * cols], workspace);
    }
    return model;
}

StepResult computeSteps(const Matrix &X, const Matrix &Y, const QVector<bool> &updateMask,
                        const Vector &lambda, const StepSettings &settings)
{
    const std::clock_t started = std::clock();
    const std::size_t n = X.size1();
    const std::size_t p = X.size2();
    const std::size_t m = Y.size2();
    StepResult result;
    result.steps = Matrix(n, p, 0.0);
    if (!sizesAgree(X, Y, updateMask, lambda, settings) || p == 0 || m == 0)
        return result;

    const QVector<bool> valid = validOutputs(Y);
    const Matrix weights = neighbourhoodWeights(X, valid, settings.domainLower, settings.domainUpper,
                                                settings.uniformNeighbourhood);
    Scratch scratch(p, m, n);
    Matrix localJ(m, p);
    Matrix globalJ;
    Vector intercept;
    bool haveGlobalModel = false;
    enum { None, Local, Global } lastJacobian = None;

    for (std::size_t i = 0; i < n; ++i) {
        double *step = &result.steps.data()[i * p];
        double *residual = scratch.residual.data();
        if (!valid[int(i)]) {
            // Fitted only when an invalid point needs it.
            if (!haveGlobalModel) {
                const Matrix model = globalLinearModel(X, Y, updateMask);
                globalJ = ublas::subrange(model, 0, m, 0, p);
                intercept = ublas::column(model, p);
                haveGlobalModel = true;
            }
            // Each target entry scaled by a factor in [1 - d, 1 + d], drawn
            // afresh per point and entry. u = (0..32767) / 32767 whatever
            // RAND_MAX is (2^31 - 1 on glibc; its low 15 bits are uniform).
            const double d = settings.targetPerturbation;
            for (std::size_t j = 0; j < m; ++j) {
                const double u = double(std::rand() % 32768) / 32767.0;
                const double perturbed = settings.target[j] * (1.0 + d * 2.0 * (u - 0.5));
                double predicted = intercept[j];
                for (std::size_t q = 0; q < p; ++q)
                    predicted += globalJ(j, q) * X(i, q);
                residual[j] = perturbed - predicted;
            }
            regularisedStep(globalJ, residual, lambda[i], step, scratch);
            lastJacobian = Global;
        } else if (updateMask[int(i)]) {
            localJacobian(X, Y, weights, i, localJ, scratch);
            for (std::size_t j = 0; j < m; ++j)
                residual[j] = settings.target[j] - Y(i, j);
            regularisedStep(localJ, residual, lambda[i], step, scratch);
            lastJacobian = Local;
        }
    }

    if (lastJacobian == Global)
        result.lastJacobian = globalJ;
    else if (lastJacobian == Local)
        result.lastJacobian = localJ;

    const double seconds = double(std::clock() - started) / CLOCKS_PER_SEC;
    qDebug() << "Matrix calc time " << seconds;
    return result;
}
