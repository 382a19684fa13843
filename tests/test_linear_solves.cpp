#include "engine/LinearSolves.h"
#include "test_support.h"

#include <boost/numeric/ublas/lu.hpp>

#include <QtTest>

#include <random>

namespace {

Matrix matrixOf(std::size_t rows, std::size_t cols, std::initializer_list<double> values)
{
    Matrix m(rows, cols);
    std::copy(values.begin(), values.end(), m.data().begin());
    return m;
}

Vector vectorOf(std::initializer_list<double> values)
{
    Vector v(values.size());
    std::copy(values.begin(), values.end(), v.begin());
    return v;
}

// Solution of the square system M x = g by LU, as an independent reference.
Vector luSolve(Matrix M, Vector g)
{
    ublas::permutation_matrix<std::size_t> pivots(M.size1());
    if (ublas::lu_factorize(M, pivots) != 0)
        qFatal("singular reference system");
    ublas::lu_substitute(M, pivots, g);
    return g;
}

} // namespace

class TestLinearSolves : public QObject {
    Q_OBJECT

private slots:
    void leastSquaresSolutions();
    void mixedDiagonalRule();
    void iterationCapIsTheRowCount();
    void sizeMismatchGivesZero();
    void symmetricEigendecomposition();
    void blockedProductMatchesPlainArithmetic();
};

void TestLinearSolves::leastSquaresSolutions()
{
    // Consistent system: the exact solution.
    const Matrix A = matrixOf(4, 3, {2, 1, 0, 1, 3, 1, 0, 1, 4, 1, 0, 1});
    const Vector xTrue = vectorOf({1.5, -2.0, 0.25});
    const Vector b = ublas::prod(A, xTrue);
    QVERIFY(closeTo(cgne(A, b), xTrue, 1e-10));

    // Inconsistent system: the solution of the normal equations.
    const Vector noisy = vectorOf({1.0, -2.0, 3.0, 0.5});
    const Vector expected = luSolve(ublas::prod(ublas::trans(A), A), ublas::prod(ublas::trans(A), noisy));
    QVERIFY(closeTo(cgne(A, noisy), expected, 1e-10));

    // lambda = 0 leaves the normal matrix unchanged.
    QVERIFY(closeTo(cgneRegularised(A, noisy, 0.0), expected, 1e-10));
    QVERIFY(closeTo(cgneRegularised(A, noisy, Vector(3, 0.0)), expected, 1e-10));
}

void TestLinearSolves::mixedDiagonalRule()
{
    // Orthogonal columns: A^T A = diag(4, 1, 0.25) exactly, so each component
    // of the solution is g_q / (regularised diagonal entry).
    const Matrix A = matrixOf(3, 3, {2, 0, 0, 0, 1, 0, 0, 0, 0.5});
    const Vector b = vectorOf({1, 1, 1});
    const Vector g = ublas::prod(ublas::trans(A), b); // 2, 1, 0.5
    const double lambda = 3.0;

    // 4 > 1: multiplied by (lambda + 1); 0.25: lambda added. At exactly 1.0
    // the additive branch is taken, though both give 1 + lambda bit for bit.
    const Vector expected =
            vectorOf({g[0] / (4.0 * (lambda + 1.0)), g[1] / (1.0 + lambda), g[2] / (0.25 + lambda)});
    QVERIFY(closeTo(cgneRegularised(A, b, lambda), expected, 1e-10));

    // Per-entry values follow the same rule entry by entry.
    const Vector lambdas = vectorOf({1.0, 2.0, 0.5});
    const Vector perEntry = vectorOf({g[0] / (4.0 * 2.0), g[1] / 3.0, g[2] / 0.75});
    QVERIFY(closeTo(cgneRegularised(A, b, lambdas), perEntry, 1e-10));
}

void TestLinearSolves::iterationCapIsTheRowCount()
{
    // Two rows, four columns: the regularised 4 x 4 system has distinct
    // eigenvalues and needs four CG iterations, but only two are allowed.
    const Matrix A = matrixOf(2, 4, {1, 2, 3, 4, 2, -1, 0.5, 3});
    const Vector b = vectorOf({1, -2});
    const double lambda = 0.7;
    Matrix M = ublas::prod(ublas::trans(A), A);
    for (std::size_t q = 0; q < 4; ++q)
        M(q, q) = M(q, q) > 1.0 ? M(q, q) * (lambda + 1.0) : M(q, q) + lambda;
    const Vector g = ublas::prod(ublas::trans(A), b);
    const Vector exact = luSolve(M, g);

    // Two CG iterations from 0 give the M-norm best solution within
    // span{g, Mg}: solve the projected 2 x 2 system.
    Matrix K(4, 2);
    ublas::column(K, 0) = g;
    ublas::column(K, 1) = ublas::prod(M, g);
    const Matrix MK = ublas::prod(M, K);
    const Vector c = luSolve(ublas::prod(ublas::trans(K), MK), ublas::prod(ublas::trans(K), g));
    const Vector twoSteps = ublas::prod(K, c);

    const Vector capped = cgneRegularised(A, b, lambda);
    QVERIFY(closeTo(capped, twoSteps, 1e-9));
    QVERIFY(!closeTo(capped, exact, 1e-3));

    // Zero rows change neither M nor g, only the cap: now it converges.
    Matrix padded(5, 4, 0.0);
    ublas::subrange(padded, 0, 2, 0, 4) = A;
    Vector paddedB(5, 0.0);
    ublas::subrange(paddedB, 0, 2) = b;
    QVERIFY(closeTo(cgneRegularised(padded, paddedB, lambda), exact, 1e-9));
}

void TestLinearSolves::sizeMismatchGivesZero()
{
    const Matrix A = matrixOf(3, 2, {1, 2, 3, 4, 5, 6});
    const Vector b = vectorOf({1, 2, 3, 4});
    for (int variant = 0; variant < 2; ++variant) {
        QTest::ignoreMessage(QtDebugMsg, "CGNE error: matrix A and vetor b sizes do not make sense.");
        QTest::ignoreMessage(QtDebugMsg, "Size of A:  3 2");
        QTest::ignoreMessage(QtDebugMsg, "Size of b:  4");
        QVERIFY(closeTo(variant == 0 ? cgne(A, b) : cgneRegularised(A, b, 1.0), Vector(2, 0.0)));
    }
}

void TestLinearSolves::symmetricEigendecomposition()
{
    const Matrix A = matrixOf(4, 4, {4, 1, -2, 2, 1, 2, 0, 1, -2, 0, 3, -2, 2, 1, -2, -1});
    Vector values;
    Matrix vectors;
    QVERIFY(symmetricEigen(A, values, vectors));
    QCOMPARE(values.size(), std::size_t(4));
    double trace = 0.0;
    for (std::size_t c = 0; c < 4; ++c) {
        trace += values[c];
        if (c > 0)
            QVERIFY(values[c - 1] <= values[c]);
        const Vector v = ublas::column(vectors, c);
        QVERIFY(closeTo(Vector(ublas::prod(A, v)), Vector(values[c] * v), 1e-12));
        for (std::size_t d = 0; d < 4; ++d)
            QVERIFY(std::fabs(ublas::inner_prod(v, Vector(ublas::column(vectors, d))) -
                              (c == d ? 1.0 : 0.0)) < 1e-12);
    }
    QVERIFY(std::fabs(trace - 8.0) < 1e-12);

    QTest::ignoreMessage(QtDebugMsg, "Eigendecomposition error: A.size1()= 2 is not equal to A.size2()= 3");
    QVERIFY(!symmetricEigen(Matrix(2, 3, 1.0), values, vectors));
    QCOMPARE(values.size(), std::size_t(0));
}

void TestLinearSolves::blockedProductMatchesPlainArithmetic()
{
    std::mt19937_64 generator(17);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    // Sizes on and off the 2 x 4 block edges.
    for (std::size_t rows : {1, 2, 5, 10}) {
        for (std::size_t columns : {1, 3, 4, 9, 40}) {
            const std::size_t inner = 7;
            std::vector<double> left(rows * inner), right(inner * columns), product(rows * columns);
            std::generate(left.begin(), left.end(), [&] { return unit(generator); });
            std::generate(right.begin(), right.end(), [&] { return unit(generator); });
            multiplyRowMajor(left.data(), right.data(), rows, inner, columns, product.data());
            for (std::size_t q = 0; q < rows; ++q)
                for (std::size_t j = 0; j < columns; ++j) {
                    double sum = 0.0;
                    for (std::size_t s = 0; s < inner; ++s)
                        sum += left[q * inner + s] * right[s * columns + j];
                    QVERIFY(product[q * columns + j] == sum); // exact, not fuzzy
                }
        }
    }
}

QTEST_APPLESS_MAIN(TestLinearSolves)
#include "test_linear_solves.moc"
