#include "engine/StepComputation.h"

#include "engine/LocalJacobian.h"
#include "model/ParallelChunks.h"

#include <boost/numeric/ublas/matrix_proxy.hpp>

#include <QDebug>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <memory>

namespace {

// The step scratch of one thread: the regularised normal equations of a
// point's step and, for locally fitted points, its local Jacobian.
struct StepWorkspace {
    LocalFitWorkspace localFit;
    std::vector<std::size_t> localPoints; // of the chunk in hand
    std::vector<double> localJacobians;   // theirs, m x p each
    Matrix localJacobian;                 // m x p: the one in use
    std::vector<double> residual;         // m: right-hand side of the step
    std::vector<double> normal;           // p x p: J^T J, then regularised
    std::vector<double> rhs;              // p: J^T r
    ConjugateGradientWorkspace cg;

    explicit StepWorkspace(const LocalFitInputs &in)
        : localFit(in)
        , localJacobian(in.m, in.p)
        , residual(in.m)
        , normal(in.p * in.p)
        , rhs(in.p)
    {
        cg.resize(in.p);
    }
};

// Solves (J^T J, regularised by lambda) step = J^T r by CG capped at rows(J).
void regularisedStep(const Matrix &jacobian, const double *residual, double lambda, double *step,
                     StepWorkspace &scratch)
{
    const std::size_t p = jacobian.size2();
    formNormalMatrix(jacobian, scratch.normal.data());
    formNormalRhs(jacobian, residual, scratch.rhs.data());
    regulariseDiagonal(scratch.normal.data(), p, lambda);
    conjugateGradients(scratch.normal.data(), scratch.rhs.data(), p, jacobian.size1(), step, scratch.cg);
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

LocalFitInputs localFitInputs(const Matrix &X, const Matrix &Y, const bool *valid, const Vector &domainLower,
                              const Vector &domainUpper, bool uniformNeighbourhood)
{
    LocalFitInputs in;
    in.n = X.size1();
    in.p = X.size2();
    in.m = Y.size2();
    in.X = in.n * in.p != 0 ? &X.data()[0] : nullptr;
    in.Y = in.n * in.m != 0 ? &Y.data()[0] : nullptr;
    in.valid = valid;
    in.uniformNeighbourhood = uniformNeighbourhood;
    for (std::size_t q = 0; q < in.p; ++q)
        in.range.push_back(domainUpper[q] - domainLower[q]);
    in.columns.resize(in.n * in.p);
    in.joined.resize(in.n * (in.p + in.m));
    for (std::size_t i = 0; i < in.n; ++i) {
        double *joined = &in.joined[i * (in.p + in.m)];
        for (std::size_t q = 0; q < in.p; ++q)
            in.columns[q * in.n + i] = joined[q] = X(i, q);
        for (std::size_t j = 0; j < in.m; ++j)
            joined[in.p + j] = Y(i, j);
    }
    return in;
}

// What the parallel part of a step computation needs beyond its inputs: the
// kind of step of every point, and for the invalid points the global model
// and their right-hand sides, whose rand() draws are taken here in point
// order so that the steps do not depend on the number of threads.
struct StepPlan {
    enum Kind : char { None, Local, Global };
    std::vector<Kind> kind;
    std::size_t last = std::size_t(-1); // the last point that needs a Jacobian
    Matrix globalJacobian;              // m x p, when a point needs it
    std::vector<std::size_t> slot;      // point -> its row of globalResiduals
    std::vector<double> globalResiduals;
};

StepPlan planSteps(const Matrix &X, const Matrix &Y, const QVector<bool> &updateMask, const bool *valid,
                   const StepSettings &settings)
{
    const std::size_t n = X.size1(), p = X.size2(), m = Y.size2();
    StepPlan plan;
    plan.kind.resize(n, StepPlan::None);
    plan.slot.resize(n, 0);
    Vector intercept;
    for (std::size_t i = 0; i < n; ++i) {
        if (valid[i]) {
            if (updateMask[int(i)]) {
                plan.kind[i] = StepPlan::Local;
                plan.last = i;
            }
            continue;
        }
        plan.kind[i] = StepPlan::Global;
        plan.last = i;
        // Fitted only when an invalid point needs it.
        if (plan.globalJacobian.size1() == 0) {
            const Matrix model = globalLinearModel(X, Y, updateMask);
            plan.globalJacobian = ublas::subrange(model, 0, m, 0, p);
            intercept = ublas::column(model, p);
        }
        // Each target entry scaled by a factor in [1 - d, 1 + d], drawn
        // afresh per point and entry. u = (0..32767) / 32767 whatever
        // RAND_MAX is (2^31 - 1 on glibc; its low 15 bits are uniform).
        plan.slot[i] = plan.globalResiduals.size() / std::max<std::size_t>(m, 1);
        const double d = settings.targetPerturbation;
        for (std::size_t j = 0; j < m; ++j) {
            const double u = double(std::rand() % 32768) / 32767.0;
            const double perturbed = settings.target[j] * (1.0 + d * 2.0 * (u - 0.5));
            double predicted = intercept[j];
            for (std::size_t q = 0; q < p; ++q)
                predicted += plan.globalJacobian(j, q) * X(i, q);
            plan.globalResiduals.push_back(perturbed - predicted);
        }
    }
    return plan;
}

// The steps of points begin .. end - 1: their local Jacobians first, fitted
// together, then every point's regularised solve.
void stepPoints(const LocalFitInputs &in, const StepPlan &plan, const Vector &target, const Vector &lambda,
                std::size_t begin, std::size_t end, StepWorkspace &scratch, StepResult &result)
{
    const std::size_t p = in.p, m = in.m;
    scratch.localPoints.clear();
    for (std::size_t i = begin; i < end; ++i)
        if (plan.kind[i] == StepPlan::Local)
            scratch.localPoints.push_back(i);
    scratch.localJacobians.resize(scratch.localPoints.size() * m * p);
    scratch.localFit.fit(in, scratch.localPoints.data(), scratch.localPoints.size(),
                         scratch.localJacobians.data());

    const double *localJacobian = scratch.localJacobians.data();
    for (std::size_t i = begin; i < end; ++i) {
        double *step = &result.steps.data()[i * p];
        if (plan.kind[i] == StepPlan::Global) {
            regularisedStep(plan.globalJacobian, &plan.globalResiduals[plan.slot[i] * m], lambda[i], step,
                            scratch);
        } else if (plan.kind[i] == StepPlan::Local) {
            std::copy_n(localJacobian, m * p, &scratch.localJacobian.data()[0]);
            localJacobian += m * p;
            for (std::size_t j = 0; j < m; ++j)
                scratch.residual[j] = target[j] - in.Y[i * m + j];
            regularisedStep(scratch.localJacobian, scratch.residual.data(), lambda[i], step, scratch);
            // Only the chunk that holds the last point writes it.
            if (i == plan.last)
                result.lastJacobian = scratch.localJacobian;
        }
    }
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
    std::unique_ptr<bool[]> flags(new bool[n]);
    std::copy(valid.begin(), valid.end(), flags.get());
    const LocalFitInputs in =
            localFitInputs(X, X, flags.get(), domainLower, domainUpper, uniformNeighbourhood);
    Matrix weights(n, n, 0.0);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t k = i + 1; k < n; ++k)
            weights(i, k) = weights(k, i) = neighbourWeight(in, i, k);
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
                        const Vector &lambda, const StepSettings &settings, int threads)
{
    const std::clock_t started = std::clock();
    const std::size_t n = X.size1();
    const std::size_t p = X.size2();
    const std::size_t m = Y.size2();
    StepResult result;
    result.steps = Matrix(n, p, 0.0);
    if (!sizesAgree(X, Y, updateMask, lambda, settings) || p == 0 || m == 0)
        return result;

    const QVector<bool> validRows = validOutputs(Y);
    std::unique_ptr<bool[]> valid(new bool[n]);
    std::copy(validRows.begin(), validRows.end(), valid.get());
    const StepPlan plan = planSteps(X, Y, updateMask, valid.get(), settings);
    const LocalFitInputs in = localFitInputs(X, Y, valid.get(), settings.domainLower, settings.domainUpper,
                                             settings.uniformNeighbourhood);

    runInChunks(n, threads > 0 ? threads : defaultThreadCount(), [&] {
        return [&, scratch = std::make_shared<StepWorkspace>(in)](std::size_t begin, std::size_t end) {
            stepPoints(in, plan, settings.target, lambda, begin, end, *scratch, result);
        };
    });
    if (plan.last < n && plan.kind[plan.last] == StepPlan::Global)
        result.lastJacobian = plan.globalJacobian;

    const double seconds = double(std::clock() - started) / CLOCKS_PER_SEC;
    qDebug() << "Matrix calc time " << seconds;
    return result;
}
