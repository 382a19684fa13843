#include "PlotThinning.h"

#include <QHash>

#include <algorithm>
#include <cmath>

namespace {

bool canPlot(const QPointF &p, bool logX, bool logY)
{
    return std::isfinite(p.x()) && std::isfinite(p.y()) && (!logX || p.x() > 0) && (!logY || p.y() > 0);
}

// The axis span [low, high] widened by the margin.
void widen(double &low, double &high, bool log, double margin)
{
    // Values that are not negative beyond an integrator's error (-1e-7 for
    // an amount that is gone) keep the axis at 0.
    const double dataLow = low;
    const bool nonNegative = low >= -1e-6 * std::max(std::abs(low), std::abs(high));
    if (log) {
        if (low == high) {
            low /= 2;
            high *= 2;
            return;
        }
        const double factor = std::pow(high / low, margin);
        low /= factor;
        high *= factor;
        return;
    }
    if (low == high) {
        const double pad = low == 0 ? 1 : std::abs(low) * 0.1;
        low -= pad;
        high += pad;
        if (nonNegative)
            low = std::max(low, std::min(0.0, dataLow));
        return;
    }
    const double pad = (high - low) * margin;
    low -= pad;
    high += pad;
    if (nonNegative)
        low = std::max(low, std::min(0.0, dataLow));
}

double axisPosition(double v, bool log)
{
    return log ? std::log(v) : v;
}

} // namespace

PlotRange rangeOf(const QVector<QPointF> &points, bool logX, bool logY, double margin)
{
    PlotRange range;
    range.logX = logX;
    range.logY = logY;
    bool any = false;
    for (const QPointF &p : points) {
        if (!canPlot(p, logX, logY))
            continue;
        range.xMin = any ? std::min(range.xMin, p.x()) : p.x();
        range.xMax = any ? std::max(range.xMax, p.x()) : p.x();
        range.yMin = any ? std::min(range.yMin, p.y()) : p.y();
        range.yMax = any ? std::max(range.yMax, p.y()) : p.y();
        any = true;
    }
    if (!any) {
        range.xMin = range.yMin = logX ? 1 : 0;
        range.xMax = logX ? 10 : 1;
        range.yMin = logY ? 1 : 0;
        range.yMax = logY ? 10 : 1;
        return range;
    }
    widen(range.xMin, range.xMax, logX, margin);
    widen(range.yMin, range.yMax, logY, margin);
    return range;
}

NiceAxis niceAxis(double low, double high, int maxIntervals)
{
    if (!std::isfinite(low) || !std::isfinite(high) || !(high > low))
        return {low, high, 5};
    const double rough = (high - low) / std::max(1, maxIntervals);
    const double power = std::pow(10.0, std::floor(std::log10(rough)));
    double step = 10 * power;
    for (double factor : {1.0, 2.0, 2.5, 5.0})
        if (factor * power >= rough * (1 - 1e-9)) {
            step = factor * power;
            break;
        }
    NiceAxis axis;
    // Ends within a millionth of a step of a tick (rounding) stay on it.
    axis.low = std::floor(low / step + 1e-6) * step;
    axis.high = std::ceil(high / step - 1e-6) * step;
    axis.ticks = int(std::lround((axis.high - axis.low) / step)) + 1;
    return axis;
}

bool logAxisUseful(double low, double high)
{
    if (!(low > 0) || !(high > low) || !std::isfinite(high))
        return false;
    return std::floor(std::log10(high)) - std::ceil(std::log10(low)) >= 1;
}

QVector<QPointF> plottable(const QVector<QPointF> &points, bool logX, bool logY)
{
    QVector<QPointF> kept;
    kept.reserve(points.size());
    for (const QPointF &p : points)
        if (canPlot(p, logX, logY))
            kept << p;
    return kept;
}

QVector<QPointF> thinToCells(const QVector<QPointF> &points, const PlotRange &range, int columns, int rows)
{
    columns = std::max(1, columns);
    rows = std::max(1, rows);
    const double x0 = axisPosition(range.xMin, range.logX), x1 = axisPosition(range.xMax, range.logX);
    const double y0 = axisPosition(range.yMin, range.logY), y1 = axisPosition(range.yMax, range.logY);
    const double xScale = x1 > x0 ? columns / (x1 - x0) : 0;
    const double yScale = y1 > y0 ? rows / (y1 - y0) : 0;
    QHash<qint64, bool> taken;
    taken.reserve(std::min(points.size(), columns * rows));
    QVector<QPointF> kept;
    for (const QPointF &p : points) {
        if (!canPlot(p, range.logX, range.logY))
            continue;
        const double cx = (axisPosition(p.x(), range.logX) - x0) * xScale;
        const double cy = (axisPosition(p.y(), range.logY) - y0) * yScale;
        const qint64 column = qint64(std::clamp(std::floor(cx), -1.0, double(columns)));
        const qint64 row = qint64(std::clamp(std::floor(cy), -1.0, double(rows)));
        const qint64 cell = (row + 1) * (qint64(columns) + 2) + column + 1;
        if (taken.contains(cell))
            continue;
        taken.insert(cell, true);
        kept << p;
    }
    return kept;
}
