#pragma once

#include "model/Matrices.h"

#include <QVector>

// Statistics of the selected points of a cluster. Every function skips
// values that are not finite numbers and gives NaN where nothing is left.

// The median of the finite values.
double medianOf(QVector<double> values);
// The q-quantile (0 <= q <= 1) of values sorted ascending, interpolated
// linearly between order statistics.
double quantileOfSorted(const QVector<double> &sorted, double q);

// Per column: the value of the best point and the median, minimum and
// maximum over the points (row indices into rows).
struct ColumnSummary {
    double best;
    double median;
    double minimum;
    double maximum;
};
QVector<ColumnSummary> summariseColumns(const DoubleMatrix &rows, const QVector<int> &points, int best,
                                        int columns);

// The sample (Pearson) correlation matrix of the columns over the points
// whose every column is finite; NaN for a column without spread or with
// fewer than two such points.
DoubleMatrix correlationMatrix(const DoubleMatrix &rows, const QVector<int> &points, int columns);

// The minimum, quartiles and the number of finite values of each
// iteration's SSR.
struct SsrQuartiles {
    double minimum;
    double lowerQuartile;
    double median;
    double upperQuartile;
    int finiteCount;
};
QVector<SsrQuartiles> ssrQuartiles(const QVector<QVector<double>> &ssrHistory);

// Per column the minimum, median and maximum over the points.
struct ColumnBands {
    QVector<double> minimum;
    QVector<double> median;
    QVector<double> maximum;
};
ColumnBands columnBands(const DoubleMatrix &rows, const QVector<int> &points, int columns);
