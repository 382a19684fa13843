// Linear algebra of the engine's step: conjugate gradients on the normal
// equations (CGNE), with and without Levenberg-Marquardt-type regularisation,
// and a symmetric eigendecomposition.
//
// Matrices are uBLAS dense row-major. The build defines BOOST_UBLAS_NDEBUG,
// so uBLAS does no index checking here; every function below checks the
// sizes it relies on itself.
#pragma once

#include <boost/numeric/ublas/matrix.hpp>
#include <boost/numeric/ublas/vector.hpp>

#include <cstddef>
#include <vector>

namespace ublas = boost::numeric::ublas;
using Matrix = ublas::matrix<double>; // row-major
using Vector = ublas::vector<double>;

// Both CG stopping tests compare against this absolute value.
constexpr double kCgTolerance = 2.220446049250313e-16;

// Scratch vectors of the conjugate-gradient iteration, kept by callers that
// solve many small systems so that no solve allocates.
struct ConjugateGradientWorkspace {
    std::vector<double> residual;
    std::vector<double> direction;
    std::vector<double> product;
    void resize(std::size_t size);
};

// Conjugate gradients on the symmetric system M x = g (size x size,
// row-major, contiguous) from x = 0, at most maxIterations iterations. Stops
// early when |p.Mp| or the new |r.r| falls below kCgTolerance.
void conjugateGradients(const double *normal, const double *rhs, std::size_t size, std::size_t maxIterations,
                        double *solution, ConjugateGradientWorkspace &workspace);

// product = left (rows x inner) * right (inner x columns), all row-major and
// contiguous. Each entry is summed over the inner index in ascending order
// from 0, like a plain triple loop, but in register blocks of 2 x 4 entries.
void multiplyRowMajor(const double *left, const double *right, std::size_t rows, std::size_t inner,
                      std::size_t columns, double *product);

// Scratch storage of conjugateGradientsColumns.
struct ConjugateGradientColumnsWorkspace {
    std::vector<double> residual;  // size x columns
    std::vector<double> direction; // size x columns
    std::vector<double> product;   // size x columns
    std::vector<double> rr, rrNew, pMp;
    std::vector<char> active;
    void resize(std::size_t size, std::size_t columns);
};

// conjugateGradients for every column of rhs (size x columns, row-major) at
// once, into the columns of solution. Each column follows exactly the same
// arithmetic as its own conjugateGradients call and stops on its own; the
// products with M are taken for all columns together, which vectorises
// along the columns.
void conjugateGradientsColumns(const double *normal, const double *rhs, std::size_t size, std::size_t columns,
                               std::size_t maxIterations, double *solution,
                               ConjugateGradientColumnsWorkspace &workspace);

// The regularisation of the normal matrix: a diagonal entry above 1.0 is
// multiplied by (lambda + 1), any other entry gets lambda added (so large
// entries scale like Levenberg-Marquardt and small ones are lifted).
void regulariseDiagonal(double *normal, std::size_t size, double lambda);
void regulariseDiagonal(double *normal, std::size_t size, const double *lambdas);

// normal = A^T A (cols x cols), written into caller storage.
void formNormalMatrix(const Matrix &A, double *normal);
// rhs = A^T b (cols entries), b having rows(A) entries.
void formNormalRhs(const Matrix &A, const double *b, double *rhs);

// Least-squares solution of A x ~ b: CG on A^T A x = A^T b, at most
// rows(A) iterations. A length mismatch between b and the rows of A is
// reported to the debug output and gives a zero vector of length cols(A).
Vector cgne(const Matrix &A, const Vector &b);

// As cgne, with the normal matrix's diagonal regularised by lambda.
Vector cgneRegularised(const Matrix &A, const Vector &b, double lambda);

// As cgne, with one regularisation value per diagonal entry (lambdas must
// have cols(A) entries; otherwise a zero vector is returned).
Vector cgneRegularised(const Matrix &A, const Vector &b, const Vector &lambdas);

// Eigenvalues (ascending) and orthonormal eigenvectors (as columns) of a
// symmetric matrix by cyclic Jacobi rotations. A non-square input is reported
// to the debug output and gives false with both outputs emptied.
bool symmetricEigen(const Matrix &A, Vector &eigenvalues, Matrix &eigenvectors);
