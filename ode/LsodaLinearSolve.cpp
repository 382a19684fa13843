// LSODA's dense linear algebra: the LU factorisation of the iteration matrix
// with partial pivoting and the solve with its factors, both by columns.
#include "ode/LSODA.h"

#include <cmath>
#include <utility>

void LSODA::dgefa(std::vector<std::vector<double>> &a, int n, std::vector<int> &ipvt, int *info)
{
    // Gaussian elimination with partial pivoting, by columns; a[j][i] is
    // row i of column j. Multipliers are stored negated below the diagonal.
    *info = 0;
    for (int k = 1; k <= n - 1; ++k) {
        double *colk = a[k].data();
        int l = k;
        double dmax = std::fabs(colk[k]);
        for (int i = k + 1; i <= n; ++i)
            if (std::fabs(colk[i]) > dmax) {
                dmax = std::fabs(colk[i]);
                l = i;
            }
        ipvt[k] = l;
        if (colk[l] == 0.0) {
            *info = k;
            continue;
        }
        if (l != k)
            std::swap(colk[l], colk[k]);
        const double scale = -1.0 / colk[k];
        for (int i = k + 1; i <= n; ++i)
            colk[i] *= scale;
        for (int j = k + 1; j <= n; ++j) {
            double *colj = a[j].data();
            const double t = colj[l];
            if (l != k) {
                colj[l] = colj[k];
                colj[k] = t;
            }
            if (t == 0.0)
                continue;
            for (int i = k + 1; i <= n; ++i)
                colj[i] += t * colk[i];
        }
    }
    ipvt[n] = n;
    if (a[n][n] == 0.0)
        *info = n;
}

void LSODA::dgesl(const std::vector<std::vector<double>> &a, int n, const std::vector<int> &ipvt, double *b)
{
    // Solves A x = b with the factors from dgefa: first L y = b, then U x = y.
    for (int k = 1; k <= n - 1; ++k) {
        const int l = ipvt[k];
        const double t = b[l];
        if (l != k) {
            b[l] = b[k];
            b[k] = t;
        }
        if (t == 0.0)
            continue;
        const double *colk = a[k].data();
        for (int i = k + 1; i <= n; ++i)
            b[i] += t * colk[i];
    }
    for (int k = n; k >= 1; --k) {
        const double *colk = a[k].data();
        b[k] /= colk[k];
        const double t = -b[k];
        if (t == 0.0)
            continue;
        for (int i = 1; i <= k - 1; ++i)
            b[i] += t * colk[i];
    }
}
