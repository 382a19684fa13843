#include "ClusterStatistics.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

QVector<double> finiteSorted(const QVector<double> &values)
{
    QVector<double> finite;
    finite.reserve(values.size());
    for (double v : values)
        if (std::isfinite(v))
            finite << v;
    std::sort(finite.begin(), finite.end());
    return finite;
}

QVector<double> column(const DoubleMatrix &rows, const QVector<int> &points, int c)
{
    QVector<double> values;
    values.reserve(points.size());
    for (int i : points)
        values << rows.value(i).value(c, kNaN);
    return values;
}

} // namespace

double quantileOfSorted(const QVector<double> &sorted, double q)
{
    if (sorted.isEmpty())
        return kNaN;
    const double position = q * (sorted.size() - 1);
    const int below = int(std::floor(position));
    const int above = std::min(below + 1, sorted.size() - 1);
    return sorted[below] + (position - below) * (sorted[above] - sorted[below]);
}

double medianOf(QVector<double> values)
{
    return quantileOfSorted(finiteSorted(values), 0.5);
}

QVector<ColumnSummary> summariseColumns(const DoubleMatrix &rows, const QVector<int> &points, int best,
                                        int columns)
{
    QVector<ColumnSummary> summaries;
    for (int c = 0; c < columns; ++c) {
        const QVector<double> sorted = finiteSorted(column(rows, points, c));
        ColumnSummary s;
        s.best = best >= 0 ? rows.value(best).value(c, kNaN) : kNaN;
        s.median = quantileOfSorted(sorted, 0.5);
        s.minimum = sorted.isEmpty() ? kNaN : sorted.first();
        s.maximum = sorted.isEmpty() ? kNaN : sorted.last();
        summaries << s;
    }
    return summaries;
}

DoubleMatrix correlationMatrix(const DoubleMatrix &rows, const QVector<int> &points, int columns)
{
    QVector<int> complete;
    for (int i : points) {
        const QVector<double> &row = rows.value(i);
        bool ok = row.size() >= columns;
        for (int c = 0; ok && c < columns; ++c)
            ok = std::isfinite(row[c]);
        if (ok)
            complete << i;
    }
    DoubleMatrix correlation(columns, QVector<double>(columns, kNaN));
    if (complete.size() < 2)
        return correlation;

    QVector<double> mean(columns, 0.0);
    for (int i : complete)
        for (int c = 0; c < columns; ++c)
            mean[c] += rows[i][c] / complete.size();
    DoubleMatrix cross(columns, QVector<double>(columns, 0.0));
    for (int i : complete)
        for (int a = 0; a < columns; ++a)
            for (int b = a; b < columns; ++b)
                cross[a][b] += (rows[i][a] - mean[a]) * (rows[i][b] - mean[b]);
    for (int a = 0; a < columns; ++a)
        for (int b = a; b < columns; ++b) {
            const double denominator = std::sqrt(cross[a][a] * cross[b][b]);
            const double r = denominator > 0 ? std::clamp(cross[a][b] / denominator, -1.0, 1.0) : kNaN;
            correlation[a][b] = correlation[b][a] = r;
        }
    return correlation;
}

QVector<SsrQuartiles> ssrQuartiles(const QVector<QVector<double>> &ssrHistory)
{
    QVector<SsrQuartiles> quartiles;
    for (const QVector<double> &ssr : ssrHistory) {
        const QVector<double> sorted = finiteSorted(ssr);
        quartiles << SsrQuartiles{sorted.isEmpty() ? kNaN : sorted.first(), quantileOfSorted(sorted, 0.25),
                                  quantileOfSorted(sorted, 0.5), quantileOfSorted(sorted, 0.75),
                                  sorted.size()};
    }
    return quartiles;
}

ColumnBands columnBands(const DoubleMatrix &rows, const QVector<int> &points, int columns)
{
    ColumnBands bands;
    for (int c = 0; c < columns; ++c) {
        const QVector<double> sorted = finiteSorted(column(rows, points, c));
        bands.minimum << (sorted.isEmpty() ? kNaN : sorted.first());
        bands.median << quantileOfSorted(sorted, 0.5);
        bands.maximum << (sorted.isEmpty() ? kNaN : sorted.last());
    }
    return bands;
}
