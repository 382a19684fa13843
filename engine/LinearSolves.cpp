#include "engine/LinearSolves.h"

#include <QDebug>

#include <algorithm>
#include <cmath>
#include <numeric>

void ConjugateGradientWorkspace::resize(std::size_t size)
{
    residual.resize(size);
    direction.resize(size);
    product.resize(size);
}

void conjugateGradients(const double *normal, const double *rhs, std::size_t size, std::size_t maxIterations,
                        double *solution, ConjugateGradientWorkspace &workspace)
{
    workspace.resize(size);
    double *r = workspace.residual.data();
    double *p = workspace.direction.data();
    double *mp = workspace.product.data();

    std::fill(solution, solution + size, 0.0);
    std::copy(rhs, rhs + size, r);
    std::copy(rhs, rhs + size, p);
    double rr = std::inner_product(r, r + size, r, 0.0);

    for (std::size_t iteration = 0; iteration < maxIterations; ++iteration) {
        double pMp = 0.0;
        for (std::size_t q = 0; q < size; ++q) {
            const double *row = normal + q * size;
            double sum = 0.0;
            for (std::size_t s = 0; s < size; ++s)
                sum += row[s] * p[s];
            mp[q] = sum;
            pMp += p[q] * sum;
        }
        if (std::fabs(pMp) < kCgTolerance)
            break;
        const double alpha = rr / pMp;
        double rrNew = 0.0;
        for (std::size_t q = 0; q < size; ++q) {
            solution[q] += alpha * p[q];
            r[q] -= alpha * mp[q];
            rrNew += r[q] * r[q];
        }
        if (std::fabs(rrNew) < kCgTolerance)
            break;
        const double beta = rrNew / rr;
        for (std::size_t q = 0; q < size; ++q)
            p[q] = r[q] + beta * p[q];
        rr = rrNew;
    }
}

void multiplyRowMajor(const double *left, const double *right, std::size_t rows, std::size_t inner,
                      std::size_t columns, double *product)
{
    // Register blocks: kRows x kBlock sums stay in registers over the inner
    // loop; plain loops that compilers vectorise along the columns.
    constexpr std::size_t kRows = 2;
    constexpr std::size_t kBlock = 4;
    std::size_t q = 0;
    for (; q + kRows <= rows; q += kRows) {
        std::size_t j = 0;
        for (; j + kBlock <= columns; j += kBlock) {
            double sum[kRows][kBlock] = {};
            for (std::size_t s = 0; s < inner; ++s) {
                const double *r = right + s * columns + j;
                for (std::size_t a = 0; a < kRows; ++a) {
                    const double x = left[(q + a) * inner + s];
                    for (std::size_t c = 0; c < kBlock; ++c)
                        sum[a][c] += x * r[c];
                }
            }
            for (std::size_t a = 0; a < kRows; ++a)
                for (std::size_t c = 0; c < kBlock; ++c)
                    product[(q + a) * columns + j + c] = sum[a][c];
        }
        for (; j < columns; ++j)
            for (std::size_t a = 0; a < kRows; ++a) {
                double sum = 0.0;
                for (std::size_t s = 0; s < inner; ++s)
                    sum += left[(q + a) * inner + s] * right[s * columns + j];
                product[(q + a) * columns + j] = sum;
            }
    }
    for (; q < rows; ++q) {
        const double *leftRow = left + q * inner;
        for (std::size_t j = 0; j < columns; ++j) {
            double sum = 0.0;
            for (std::size_t s = 0; s < inner; ++s)
                sum += leftRow[s] * right[s * columns + j];
            product[q * columns + j] = sum;
        }
    }
}

void ConjugateGradientColumnsWorkspace::resize(std::size_t size, std::size_t columns)
{
    residual.resize(size * columns);
    direction.resize(size * columns);
    product.resize(size * columns);
    rr.resize(columns);
    rrNew.resize(columns);
    pMp.resize(columns);
    active.resize(columns);
}

void conjugateGradientsColumns(const double *normal, const double *rhs, std::size_t size, std::size_t columns,
                               std::size_t maxIterations, double *solution,
                               ConjugateGradientColumnsWorkspace &workspace)
{
    workspace.resize(size, columns);
    const std::size_t entries = size * columns;
    double *r = workspace.residual.data();
    double *p = workspace.direction.data();
    double *mp = workspace.product.data();
    double *rr = workspace.rr.data();
    double *rrNew = workspace.rrNew.data();
    double *pMp = workspace.pMp.data();
    char *active = workspace.active.data();

    std::fill(solution, solution + entries, 0.0);
    std::copy(rhs, rhs + entries, r);
    std::copy(rhs, rhs + entries, p);
    std::fill(rr, rr + columns, 0.0);
    for (std::size_t q = 0; q < size; ++q)
        for (std::size_t j = 0; j < columns; ++j)
            rr[j] += r[q * columns + j] * r[q * columns + j];
    std::fill(active, active + columns, char(1));
    std::size_t activeCount = columns;

    for (std::size_t iteration = 0; iteration < maxIterations && activeCount > 0; ++iteration) {
        // M P for all columns; stopped columns are computed too and ignored.
        multiplyRowMajor(normal, p, size, size, columns, mp);
        std::fill(pMp, pMp + columns, 0.0);
        for (std::size_t q = 0; q < size; ++q)
            for (std::size_t j = 0; j < columns; ++j)
                pMp[j] += p[q * columns + j] * mp[q * columns + j];

        for (std::size_t j = 0; j < columns; ++j) {
            if (!active[j])
                continue;
            if (std::fabs(pMp[j]) < kCgTolerance) {
                active[j] = 0;
                --activeCount;
                continue;
            }
            const double alpha = rr[j] / pMp[j];
            double sum = 0.0;
            for (std::size_t q = 0; q < size; ++q) {
                const std::size_t at = q * columns + j;
                solution[at] += alpha * p[at];
                r[at] -= alpha * mp[at];
                sum += r[at] * r[at];
            }
            rrNew[j] = sum;
            if (std::fabs(sum) < kCgTolerance) {
                active[j] = 0;
                --activeCount;
                continue;
            }
            const double beta = sum / rr[j];
            for (std::size_t q = 0; q < size; ++q) {
                const std::size_t at = q * columns + j;
                p[at] = r[at] + beta * p[at];
            }
            rr[j] = sum;
        }
    }
}

void regulariseDiagonal(double *normal, std::size_t size, double lambda)
{
    for (std::size_t q = 0; q < size; ++q) {
        double &entry = normal[q * size + q];
        if (entry > 1.0)
            entry *= lambda + 1.0;
        else
            entry += lambda;
    }
}

void regulariseDiagonal(double *normal, std::size_t size, const double *lambdas)
{
    for (std::size_t q = 0; q < size; ++q) {
        double &entry = normal[q * size + q];
        if (entry > 1.0)
            entry *= lambdas[q] + 1.0;
        else
            entry += lambdas[q];
    }
}

void formNormalMatrix(const Matrix &A, double *normal)
{
    const std::size_t rows = A.size1();
    const std::size_t cols = A.size2();
    std::fill(normal, normal + cols * cols, 0.0);
    if (cols == 0 || rows == 0) // no data to point at; the normal matrix stays zero
        return;
    const double *a = &A.data()[0];
    // Upper triangle, then mirrored: A^T A is symmetric.
    for (std::size_t k = 0; k < rows; ++k) {
        const double *row = a + k * cols;
        for (std::size_t q = 0; q < cols; ++q) {
            const double aq = row[q];
            double *target = normal + q * cols;
            for (std::size_t s = q; s < cols; ++s)
                target[s] += aq * row[s];
        }
    }
    for (std::size_t q = 0; q < cols; ++q)
        for (std::size_t s = 0; s < q; ++s)
            normal[q * cols + s] = normal[s * cols + q];
}

void formNormalRhs(const Matrix &A, const double *b, double *rhs)
{
    const std::size_t rows = A.size1();
    const std::size_t cols = A.size2();
    std::fill(rhs, rhs + cols, 0.0);
    if (cols == 0 || rows == 0)
        return;
    const double *a = &A.data()[0];
    for (std::size_t k = 0; k < rows; ++k) {
        const double *row = a + k * cols;
        const double bk = b[k];
        for (std::size_t q = 0; q < cols; ++q)
            rhs[q] += row[q] * bk;
    }
}

namespace {

bool sizesMakeSense(const Matrix &A, const Vector &b)
{
    if (b.size() == A.size1())
        return true;
    qDebug() << "CGNE error: matrix A and vetor b sizes do not make sense.";
    qDebug() << "Size of A: " << A.size1() << A.size2();
    qDebug() << "Size of b: " << b.size();
    return false;
}

enum class Regularisation { None, Scalar, PerEntry };

Vector solveCgne(const Matrix &A, const Vector &b, Regularisation kind, double lambda, const double *lambdas)
{
    const std::size_t cols = A.size2();
    Vector x(cols, 0.0);
    if (!sizesMakeSense(A, b) || cols == 0)
        return x;
    std::vector<double> normal(cols * cols);
    std::vector<double> rhs(cols);
    formNormalMatrix(A, normal.data());
    formNormalRhs(A, b.size() ? &b[0] : nullptr, rhs.data());
    if (kind == Regularisation::Scalar)
        regulariseDiagonal(normal.data(), cols, lambda);
    else if (kind == Regularisation::PerEntry)
        regulariseDiagonal(normal.data(), cols, lambdas);
    ConjugateGradientWorkspace workspace;
    conjugateGradients(normal.data(), rhs.data(), cols, A.size1(), &x[0], workspace);
    return x;
}

} // namespace

Vector cgne(const Matrix &A, const Vector &b)
{
    return solveCgne(A, b, Regularisation::None, 0.0, nullptr);
}

Vector cgneRegularised(const Matrix &A, const Vector &b, double lambda)
{
    return solveCgne(A, b, Regularisation::Scalar, lambda, nullptr);
}

Vector cgneRegularised(const Matrix &A, const Vector &b, const Vector &lambdas)
{
    if (lambdas.size() != A.size2()) {
        qDebug() << "CGNE error: one regularisation value per column of A is needed.";
        qDebug() << "Size of A: " << A.size1() << A.size2();
        qDebug() << "Size of lambda: " << lambdas.size();
        return Vector(A.size2(), 0.0);
    }
    return solveCgne(A, b, Regularisation::PerEntry, 0.0, lambdas.size() ? &lambdas[0] : nullptr);
}

bool symmetricEigen(const Matrix &A, Vector &eigenvalues, Matrix &eigenvectors)
{
    if (A.size1() != A.size2()) {
        qDebug() << "Eigendecomposition error:"
                 << "A.size1()=" << A.size1() << "is not equal to"
                 << "A.size2()=" << A.size2();
        eigenvalues.resize(0);
        eigenvectors.resize(0, 0);
        return false;
    }
    const std::size_t n = A.size1();
    Matrix a = A;
    Matrix v = ublas::identity_matrix<double>(n);

    // Cyclic Jacobi: each rotation zeroes one off-diagonal pair; sweeps stop
    // once the off-diagonal mass is negligible against the diagonal.
    for (int sweep = 0; sweep < 100; ++sweep) {
        double offDiagonal = 0.0;
        double diagonal = 0.0;
        for (std::size_t i = 0; i < n; ++i) {
            diagonal += a(i, i) * a(i, i);
            for (std::size_t j = i + 1; j < n; ++j)
                offDiagonal += a(i, j) * a(i, j);
        }
        if (offDiagonal == 0.0 || offDiagonal <= 1e-30 * diagonal)
            break;
        for (std::size_t p = 0; p + 1 < n; ++p) {
            for (std::size_t q = p + 1; q < n; ++q) {
                const double apq = a(p, q);
                if (apq == 0.0)
                    continue;
                const double theta = (a(q, q) - a(p, p)) / (2.0 * apq);
                const double t =
                        (theta >= 0 ? 1.0 : -1.0) / (std::fabs(theta) + std::sqrt(theta * theta + 1.0));
                const double c = 1.0 / std::sqrt(t * t + 1.0);
                const double s = t * c;
                for (std::size_t k = 0; k < n; ++k) {
                    const double akp = a(k, p);
                    const double akq = a(k, q);
                    a(k, p) = c * akp - s * akq;
                    a(k, q) = s * akp + c * akq;
                }
                for (std::size_t k = 0; k < n; ++k) {
                    const double apk = a(p, k);
                    const double aqk = a(q, k);
                    a(p, k) = c * apk - s * aqk;
                    a(q, k) = s * apk + c * aqk;
                }
                for (std::size_t k = 0; k < n; ++k) {
                    const double vkp = v(k, p);
                    const double vkq = v(k, q);
                    v(k, p) = c * vkp - s * vkq;
                    v(k, q) = s * vkp + c * vkq;
                }
            }
        }
    }

    std::vector<std::size_t> order(n);
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&a](std::size_t l, std::size_t r) { return a(l, l) < a(r, r); });
    eigenvalues.resize(n);
    eigenvectors.resize(n, n);
    for (std::size_t c = 0; c < n; ++c) {
        eigenvalues[c] = a(order[c], order[c]);
        for (std::size_t k = 0; k < n; ++k)
            eigenvectors(k, c) = v(k, order[c]);
    }
    return true;
}
