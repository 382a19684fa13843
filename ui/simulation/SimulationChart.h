#pragma once

#include "model/Matrices.h"
#include "project/SimulationTables.h"

#include <QString>
#include <QStringList>
#include <QVector>

namespace QtCharts {
class QChart;
}

// What the simulation chart shows: one line per parameter set over the time
// points and, optionally, the observed points of the same variable.
struct SimulationPlot {
    QVector<double> times;
    DoubleMatrix values;   // one line per entry, parallel to times
    QStringList lineNames; // the legend text of each line
    QString valueTitle;    // the title of the value axis
    QVector<ObservedPoint> observed;
    QString observedName;
};

// A range of the value axis; not valid when nothing can be plotted.
struct PlotRange {
    double lower = 0;
    double upper = 0;
    bool valid = false;
};

// The value axis range: the smallest and the largest plotted value, each
// multiplied by 1.1 (also the lower end, whatever its sign). On a log axis
// only positive values can be plotted, so only they count.
PlotRange simulationValueRange(const SimulationPlot &plot, bool logAxis);

// Replaces the chart's series and axes: a time axis titled "Time" over the
// time points, a value axis (log base 10 when logAxis) over
// simulationValueRange, a line series per set and a scatter series of the
// observed points, with a legend naming each.
void drawSimulationChart(QtCharts::QChart *chart, const SimulationPlot &plot, bool logAxis);
