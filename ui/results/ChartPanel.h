#pragma once

#include "analysis/PlotThinning.h"

#include <QColor>
#include <QHash>
#include <QPointF>
#include <QString>
#include <QVector>

namespace QtCharts {
class QAbstractAxis;
class QAbstractSeries;
class QAreaSeries;
class QChart;
class QChartView;
class QLineSeries;
class QScatterSeries;
} // namespace QtCharts
class QPen;
class QWidget;

// One chart of a result view. Its series are kept between draws under a key
// and refilled with whole point vectors, so a redraw during a run replaces
// points instead of rebuilding the chart; series a draw does not ask for are
// hidden. Axes are value or logarithmic axes chosen per draw.
//
// A draw: begin(), then line()/scatter()/band() for what is shown, then
// finish() with the visible range and axis titles (or showMessage() when
// there is nothing to draw).
class ChartPanel {
public:
    // Takes the view (which owns the chart).
    explicit ChartPanel(QtCharts::QChartView *view);

    QtCharts::QChartView *view() const { return m_view; }
    QtCharts::QChart *chart() const;

    void begin();
    // The series under key, visible, holding points; an empty legend text
    // keeps it out of the legend.
    QtCharts::QLineSeries *line(const QString &key, const QVector<QPointF> &points, const QPen &pen,
                                const QString &legend = QString());
    QtCharts::QScatterSeries *scatter(const QString &key, const QVector<QPointF> &points, const QColor &color,
                                      qreal size, const QString &legend = QString(), bool square = false);
    // The area between lower and upper (same x, in order).
    QtCharts::QAreaSeries *band(const QString &key, const QVector<QPointF> &lower,
                                const QVector<QPointF> &upper, const QColor &color,
                                const QString &legend = QString());
    void finish(const PlotRange &range, const QString &xTitle, const QString &yTitle);
    // An empty chart whose title says why.
    void showMessage(const QString &text);

    void setTitle(const QString &title);
    void setLegendVisible(bool visible);
    // Small charts of a grid: narrow margins, small fonts, no legend.
    void makeCompact();
    // Hides the numbers and grid of the x axis (a strip plot's spread).
    void setXLabelsVisible(bool visible) { m_xLabels = visible; }
    // Replaces the y axis by a category axis (labels at the given values).
    void setCategoryY(const QStringList &labels, const QVector<double> &positions);

    // The points of a scatter as this chart draws them: all of them when
    // there are few, otherwise at most one per cell of cellPixels square of
    // the plot area (the first of each cell), so a huge cloud costs no more
    // to paint than the screen can show.
    static constexpr int thinningThreshold = 1000;
    QVector<QPointF> thinned(const QVector<QPointF> &points, const PlotRange &range,
                             int cellPixels = 4) const;

    // Points visible on the chart, by series key (empty for a hidden or
    // unknown one): what a test or an export reads back.
    QVector<QPointF> points(const QString &key) const;
    // Whether the series is drawn and holds points.
    bool isShown(const QString &key) const;

private:
    template<typename Series>
    Series *series(const QString &key);
    void useAxes(const PlotRange &range);
    void attach(QtCharts::QAbstractSeries *series);

    QtCharts::QChartView *m_view;
    QHash<QString, QtCharts::QAbstractSeries *> m_series;
    QHash<QString, bool> m_used;
    QtCharts::QAbstractAxis *m_x = nullptr;
    QtCharts::QAbstractAxis *m_y = nullptr;
    bool m_logX = false;
    bool m_logY = false;
    bool m_categoryY = false;
    bool m_xLabels = true;
    QStringList m_categories;
    QVector<double> m_categoryPositions;
};

// Colours of groups and series, distinct on screen and in print.
QColor paletteColor(int index);
// A colour made lighter and partly transparent, for bands and thin lines.
QColor faded(const QColor &color, int alpha = 70);
