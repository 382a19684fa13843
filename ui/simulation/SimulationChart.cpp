#include "SimulationChart.h"

#include <QChart>
#include <QLegend>
#include <QLineSeries>
#include <QLogValueAxis>
#include <QScatterSeries>
#include <QValueAxis>

#include <cmath>

using namespace QtCharts;

namespace {

// Markers on the lines when there are few time points, so that a short list
// of times reads as points rather than as a polyline.
constexpr int markedTimePointLimit = 30;

bool plottable(double value, bool logAxis)
{
    return std::isfinite(value) && (!logAxis || value > 0);
}

// Distinct colours for the first lines, evenly spread hues after them.
QColor lineColor(int line, int lineCount)
{
    static const QRgb palette[] = {0x1f77b4, 0xff7f0e, 0x2ca02c, 0xd62728, 0x9467bd,
                                   0x8c564b, 0xe377c2, 0x7f7f7f, 0xbcbd22, 0x17becf};
    constexpr int paletteSize = int(sizeof(palette) / sizeof(palette[0]));
    if (lineCount <= paletteSize)
        return QColor(palette[line]);
    return QColor::fromHsv(line * 359 / lineCount, 200, 200);
}

// Ticks at round numbers (1, 2 or 5 times a power of ten apart, about five
// of them) inside the exact range, so the labels read 0.2, 0.4 rather than
// fractions of the range's ends.
void roundTicks(QValueAxis *axis, double lower, double upper)
{
    const double rough = (upper - lower) / 5;
    if (!(rough > 0) || !std::isfinite(rough))
        return;
    const double power = std::pow(10.0, std::floor(std::log10(rough)));
    const double step = rough / power < 1.5 ? 1 : rough / power < 3.5 ? 2 : rough / power < 7.5 ? 5 : 10;
    axis->setTickType(QValueAxis::TicksDynamic);
    axis->setTickAnchor(0);
    axis->setTickInterval(step * power);
}

void removeSeriesAndAxes(QChart *chart)
{
    chart->removeAllSeries();
    for (QAbstractAxis *axis : chart->axes()) {
        chart->removeAxis(axis);
        delete axis;
    }
}

QAbstractAxis *timeAxis(const QVector<double> &times)
{
    auto *axis = new QValueAxis;
    axis->setTitleText(QStringLiteral("Time"));
    axis->setLabelFormat(QStringLiteral("%g"));
    double lower = times.isEmpty() ? 0 : times.first();
    double upper = times.isEmpty() ? 1 : times.last();
    if (lower == upper) { // one time point: room on both sides
        lower -= 1;
        upper += 1;
    }
    axis->setRange(lower, upper);
    roundTicks(axis, lower, upper);
    return axis;
}

QAbstractAxis *valueAxis(const SimulationPlot &plot, bool logAxis)
{
    PlotRange range = simulationValueRange(plot, logAxis);
    if (!range.valid)
        range = {logAxis ? 1.0 : 0.0, logAxis ? 10.0 : 1.0, true};
    if (range.lower == range.upper) { // constant values: a band around them
        const double pad = range.lower == 0 ? 1 : std::abs(range.lower) * 0.1;
        range.lower = logAxis ? range.lower / 10 : range.lower - pad;
        range.upper = logAxis ? range.upper * 10 : range.upper + pad;
    }
    QAbstractAxis *axis;
    if (logAxis) {
        auto *log = new QLogValueAxis;
        log->setBase(10);
        log->setLabelFormat(QStringLiteral("%g"));
        log->setMinorTickCount(8); // lines at 2..9 within each decade
        log->setRange(range.lower, range.upper);
        axis = log;
    } else {
        auto *linear = new QValueAxis;
        linear->setLabelFormat(QStringLiteral("%g"));
        linear->setRange(range.lower, range.upper);
        roundTicks(linear, range.lower, range.upper);
        axis = linear;
    }
    axis->setTitleText(plot.valueTitle);
    return axis;
}

void attach(QChart *chart, QXYSeries *series, QAbstractAxis *x, QAbstractAxis *y)
{
    chart->addSeries(series);
    series->attachAxis(x);
    series->attachAxis(y);
}

} // namespace

PlotRange simulationValueRange(const SimulationPlot &plot, bool logAxis)
{
    PlotRange range;
    const auto include = [&](double value) {
        if (!plottable(value, logAxis))
            return;
        range.lower = range.valid ? std::min(range.lower, value) : value;
        range.upper = range.valid ? std::max(range.upper, value) : value;
        range.valid = true;
    };
    for (const QVector<double> &line : plot.values)
        for (double value : line)
            include(value);
    for (const ObservedPoint &point : plot.observed)
        include(point.value);
    range.lower *= 1.1;
    range.upper *= 1.1;
    return range;
}

void drawSimulationChart(QChart *chart, const SimulationPlot &plot, bool logAxis)
{
    removeSeriesAndAxes(chart);
    QAbstractAxis *x = timeAxis(plot.times);
    QAbstractAxis *y = valueAxis(plot, logAxis);
    chart->addAxis(x, Qt::AlignBottom);
    chart->addAxis(y, Qt::AlignLeft);

    for (int line = 0; line < plot.values.size(); ++line) {
        const QVector<double> &values = plot.values[line];
        QVector<QPointF> points;
        points.reserve(values.size());
        for (int i = 0; i < values.size() && i < plot.times.size(); ++i)
            if (plottable(values[i], logAxis))
                points << QPointF(plot.times[i], values[i]);
        auto *series = new QLineSeries;
        series->setName(plot.lineNames.value(line));
        series->setColor(lineColor(line, plot.values.size()));
        series->setPointsVisible(plot.times.size() <= markedTimePointLimit);
        series->replace(points);
        attach(chart, series, x, y);
    }

    if (!plot.observed.isEmpty()) {
        QVector<QPointF> points;
        for (const ObservedPoint &point : plot.observed)
            if (plottable(point.value, logAxis))
                points << QPointF(point.time, point.value);
        auto *scatter = new QScatterSeries;
        scatter->setName(plot.observedName);
        scatter->setColor(Qt::black);
        scatter->setMarkerSize(8);
        scatter->replace(points);
        attach(chart, scatter, x, y);
    }
    chart->legend()->setVisible(chart->series().size() > 0);
    chart->legend()->setAlignment(Qt::AlignRight);
}
