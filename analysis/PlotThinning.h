#pragma once

#include <QPointF>
#include <QVector>

// The visible window of a plot, with the scale of each axis.
struct PlotRange {
    double xMin = 0;
    double xMax = 1;
    double yMin = 0;
    double yMax = 1;
    bool logX = false;
    bool logY = false;
};

// The range that holds every plottable point (finite, and positive on a log
// axis) with a margin of the given share of the span on each side (a factor
// on a log axis); the margin never takes a linear axis below 0 when no value
// is negative. A span of zero is widened around its value; no plottable
// point gives the unit range (1 to 10 on a log axis).
PlotRange rangeOf(const QVector<QPointF> &points, bool logX, bool logY, double margin = 0.05);

// At most one point per cell of a columns x rows grid laid over the range:
// the first point of each cell is kept, so callers put the points that
// matter most first. Points that cannot be plotted (not finite, or not
// positive on a log axis) are dropped; points outside the range are
// thinned in a border of cells around the grid.
QVector<QPointF> thinToCells(const QVector<QPointF> &points, const PlotRange &range, int columns, int rows);

// A linear axis over at least low to high with round ends and at most
// maxIntervals intervals of 1, 2, 2.5 or 5 times a power of ten.
struct NiceAxis {
    double low;
    double high;
    int ticks;
};
NiceAxis niceAxis(double low, double high, int maxIntervals = 6);

// A log axis helps only when it can label at least two powers of ten: the
// span from low to high (both positive) must hold two of them.
bool logAxisUseful(double low, double high);

// Drops the points a log axis cannot show (and points that are not finite).
QVector<QPointF> plottable(const QVector<QPointF> &points, bool logX, bool logY);
