#include "PointSelection.h"

#include <algorithm>
#include <cmath>
#include <numeric>

SsrOrder orderBySsr(const QVector<double> &ssr)
{
    SsrOrder order;
    order.points.resize(ssr.size());
    std::iota(order.points.begin(), order.points.end(), 0);
    std::stable_sort(order.points.begin(), order.points.end(), [&ssr](int a, int b) {
        const bool aFinite = std::isfinite(ssr[a]), bFinite = std::isfinite(ssr[b]);
        if (aFinite != bFinite)
            return aFinite;
        return aFinite && ssr[a] < ssr[b];
    });
    for (int i : order.points) {
        if (!std::isfinite(ssr[i]))
            break;
        order.sortedSsr << ssr[i];
    }
    return order;
}

int percentilePosition(int pointCount, int percentile)
{
    return pointCount * percentile / 100 - 1;
}

PointSelection selectByPercentile(const QVector<double> &ssr, const SsrOrder &order, int percentile)
{
    PointSelection selection;
    const int position = percentilePosition(ssr.size(), percentile);
    if (position >= 0 && position < order.sortedSsr.size()) {
        selection.hasTolerance = true;
        selection.tolerance = order.sortedSsr[position];
        for (int i : order.points) {
            if (!std::isfinite(ssr[i]) || ssr[i] > selection.tolerance)
                break;
            selection.points << i;
        }
    } else {
        selection.points = order.points;
    }
    if (!selection.points.isEmpty() && std::isfinite(ssr[selection.points.first()]))
        selection.best = selection.points.first();
    return selection;
}

PointSelection selectByPercentile(const QVector<double> &ssr, int percentile)
{
    return selectByPercentile(ssr, orderBySsr(ssr), percentile);
}
