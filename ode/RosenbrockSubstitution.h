// The forward and back substitution of odeint's Rosenbrock stepper for its
// own matrix, permutation and vector types, six times per step. uBLAS's
// generic version reaches every element through its expression and
// triangular-adaptor machinery; this one walks the arrays. The arithmetic is
// uBLAS's, operation for operation: the rows swapped as the permutation
// lists them; the unit lower triangle by columns, a column skipped when its
// entry of the vector is zero; the upper triangle by rows, from the last,
// each row's products subtracted in column order and the result divided by
// the diagonal. So the stepper's results keep every bit.
//
// Declared in uBLAS's namespace before the stepper's header is read, so
// that the stepper's qualified calls find it; as a non-template with exact
// parameter types it wins over uBLAS's templates.
#pragma once

#include <boost/numeric/ublas/lu.hpp>
#include <boost/numeric/ublas/matrix.hpp>
#include <boost/numeric/ublas/vector.hpp>

#include <cstddef>
#include <utility>

namespace boost {
namespace numeric {
namespace ublas {

inline void lu_substitute(const matrix<double> &lu, const permutation_matrix<std::size_t> &pm,
                          vector<double> &e)
{
    const std::size_t size = e.size();
    double *x = &e.data()[0];
    const double *a = &lu.data()[0];
    const std::size_t columns = lu.size2();
    for (std::size_t i = 0; i < pm.size(); ++i)
        if (i != pm(i))
            std::swap(x[i], x[pm(i)]);
    for (std::size_t n = 0; n < size; ++n) {
        const double t = x[n];
        if (t != 0.0)
            for (std::size_t m = n + 1; m < size; ++m)
                x[m] -= a[m * columns + n] * t;
    }
    for (std::size_t n = size; n-- > 0;) {
        double t = x[n];
        for (std::size_t m = n + 1; m < columns; ++m)
            t -= a[n * columns + m] * x[m];
        x[n] = t / a[n * columns + n];
    }
}

} // namespace ublas
} // namespace numeric
} // namespace boost
