#pragma once

#include <QVector>

#include <limits>

// The points of one iteration that the result views show, chosen by an SSR
// percentile.

// The points of one iteration ordered by SSR: the finite SSR values
// ascending (ties by index), then the points without a finite SSR by index.
// sortedSsr holds the finite values in that order: the list the percentile
// reads.
struct SsrOrder {
    QVector<int> points;
    QVector<double> sortedSsr;
};
SsrOrder orderBySsr(const QVector<double> &ssr);

struct PointSelection {
    // False when the percentile names no entry of the sorted SSR list; then
    // every point is selected and there is no tolerance.
    bool hasTolerance = false;
    double tolerance = std::numeric_limits<double>::quiet_NaN();
    // The selected points in SSR order (see SsrOrder).
    QVector<int> points;
    // The selected point with the smallest finite SSR; -1 when none has one.
    int best = -1;
};

// The position the percentile reads: (n times percentile, divided by 100 in
// whole numbers) minus 1, counted from 0.
int percentilePosition(int pointCount, int percentile);

// With n the number of points (the length of ssr): when the sorted list has
// an entry at percentilePosition(n, percentile), that entry is the tolerance
// and the selected points are those whose SSR is a finite number not above
// it; otherwise every point is selected.
PointSelection selectByPercentile(const QVector<double> &ssr, const SsrOrder &order, int percentile);
PointSelection selectByPercentile(const QVector<double> &ssr, int percentile);
