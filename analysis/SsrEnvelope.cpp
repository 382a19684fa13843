#include "SsrEnvelope.h"

#include <algorithm>
#include <cmath>

QVector<QPointF> lowerEnvelope(const QVector<double> &values, const QVector<double> &ssr, int bins,
                               bool logScale)
{
    QVector<int> usable;
    double low = 0, high = 0;
    for (int i = 0; i < std::min(values.size(), ssr.size()); ++i) {
        if (!std::isfinite(values[i]) || !std::isfinite(ssr[i]) || (logScale && values[i] <= 0))
            continue;
        const double v = logScale ? std::log(values[i]) : values[i];
        low = usable.isEmpty() ? v : std::min(low, v);
        high = usable.isEmpty() ? v : std::max(high, v);
        usable << i;
    }
    if (usable.isEmpty() || bins < 1)
        return {};

    const double width = (high - low) / bins;
    QVector<int> lowest(bins, -1);
    for (int i : usable) {
        const double v = logScale ? std::log(values[i]) : values[i];
        const int bin = width > 0 ? std::min(bins - 1, int((v - low) / width)) : 0;
        if (lowest[bin] < 0 || ssr[i] < ssr[lowest[bin]])
            lowest[bin] = i;
    }
    QVector<QPointF> envelope;
    for (int i : lowest)
        if (i >= 0)
            envelope << QPointF(values[i], ssr[i]);
    std::sort(envelope.begin(), envelope.end(),
              [](const QPointF &a, const QPointF &b) { return a.x() < b.x(); });
    return envelope;
}
