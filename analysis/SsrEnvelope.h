#pragma once

#include <QPointF>
#include <QVector>

// The lower envelope of SSR against one parameter: the cluster's picture of
// a profile likelihood. The value range of the usable points (finite value
// and SSR, and a positive value on a log scale) is cut into bins of equal
// width (of equal ratio on a log scale); each bin that holds a point gives
// its point with the smallest SSR, as (value, SSR). Sorted by value.
QVector<QPointF> lowerEnvelope(const QVector<double> &values, const QVector<double> &ssr, int bins,
                               bool logScale);
