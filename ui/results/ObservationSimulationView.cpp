#include "ObservationSimulationView.h"

#include "ChartPanel.h"
#include "analysis/ClusterStatistics.h"
#include "ode/Simulation.h"
#include "project/ProjectModel.h"

#include <QChartView>
#include <QCheckBox>
#include <QHBoxLayout>
#include <QPen>
#include <QSplitter>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <limits>

using QtCharts::QChartView;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

ChartPanel *makePanel(const char *name, QWidget *parent)
{
    auto *view = new QChartView(parent);
    view->setObjectName(QLatin1String(name));
    view->setMinimumSize(260, 200);
    return new ChartPanel(view);
}

// The row's values at the columns, against the observation times.
QVector<QPointF> curve(const ResultFrame &frame, const QVector<double> &row, const QVector<int> &columns)
{
    QVector<QPointF> points;
    for (int j : columns)
        points << QPointF(frame.observationTimes[j], row.value(j, kNaN));
    return points;
}

QPen pen(const QColor &color, qreal width)
{
    QPen p(color);
    p.setWidthF(width);
    return p;
}

} // namespace

ObservationSimulationView::ObservationSimulationView(QObject *parent)
    : ResultView(parent)
{
    m_widget = new QWidget;
    auto *layout = new QVBoxLayout(m_widget);
    layout->setContentsMargins(0, 0, 0, 0);
    m_logY = new QCheckBox(tr("y-axis log-scale"), m_widget);
    m_logY->setObjectName(QStringLiteral("checkBox_observationSimulationLogY"));
    layout->addWidget(m_logY);

    // Three charts side by side: the page is wider than it is tall.
    auto *splitter = new QSplitter(Qt::Horizontal, m_widget);
    m_timeCourse.reset(makePanel("chartView_observationSimulation", splitter));
    m_observedPredicted.reset(makePanel("chartView_observedPredicted", splitter));
    m_residuals.reset(makePanel("chartView_residuals", splitter));
    for (ChartPanel *panel : {m_timeCourse.get(), m_observedPredicted.get(), m_residuals.get()})
        splitter->addWidget(panel->view());
    splitter->setSizes({560, 340, 340});
    layout->addWidget(splitter, 1);
    connect(m_logY, &QCheckBox::toggled, this, &ObservationSimulationView::optionsChanged);
}

ObservationSimulationView::~ObservationSimulationView() = default;

void ObservationSimulationView::forgetCurves()
{
    m_curves.clear();
}

QVector<QPointF> ObservationSimulationView::bestCurve(const ResultViewState &state, int best,
                                                      const QString &variable)
{
    if (!state.model)
        return {};
    const QVector<double> parameters = state.parameters().value(best);
    if (parameters != m_curveParameters) {
        m_curves.clear();
        m_curveParameters = parameters;
    }
    const auto found = m_curves.constFind(variable);
    if (found != m_curves.constEnd())
        return found.value();

    // From 0 (or the first observation) to the last observation, with the
    // observation times themselves among the points.
    const QVector<double> &observed = state.frame->observationTimes;
    const double first = std::min(0.0, *std::min_element(observed.begin(), observed.end()));
    const double last = *std::max_element(observed.begin(), observed.end());
    if (!std::isfinite(first) || !std::isfinite(last) || last <= first)
        return {};
    QVector<double> times = observed;
    for (int i = 0; i < curvePoints; ++i)
        times << first + (last - first) * i / (curvePoints - 1);
    std::sort(times.begin(), times.end());
    times.erase(std::unique(times.begin(), times.end()), times.end());
    const SimulationResult simulated = simulate(state.model->system, state.model->doseEvents, times,
                                                parameters, variable, false, nullptr);
    QVector<QPointF> points;
    for (int i = 0; i < simulated.values.size(); ++i)
        points << QPointF(times[i], simulated.values[i]);
    m_curves.insert(variable, points);
    return points;
}

void ObservationSimulationView::redraw(const ResultViewState &state)
{
    m_table = PlotTable();
    const QVector<int> shown = state.hasIteration() ? state.shownPoints() : QVector<int>();
    if (shown.isEmpty() || state.frame->observationCount() == 0) {
        const QString message = state.hasIteration() && !shown.isEmpty()
                                        ? tr("Nothing to show: the result holds no model outputs.")
                                        : nothingToShowText(state);
        for (ChartPanel *panel : {m_timeCourse.get(), m_observedPredicted.get(), m_residuals.get()})
            panel->showMessage(message);
        return;
    }
    drawTimeCourse(state, shown);
    drawObservedPredicted(state, shown);
    drawResiduals(state, shown.first());
    fillTable(state, shown);
}

void ObservationSimulationView::drawTimeCourse(const ResultViewState &state, const QVector<int> &shown)
{
    const ResultFrame &frame = *state.frame;
    const DoubleMatrix &Y = state.Y();
    const bool logY = m_logY->isChecked();
    const QStringList variables = frame.distinctVariables();
    const bool asBand = shown.size() - 1 > lineLimit;
    const ColumnBands bands = asBand ? columnBands(Y, shown, frame.observationCount()) : ColumnBands();
    ChartPanel &panel = *m_timeCourse;
    panel.begin();
    QVector<QPointF> all;
    for (int v = 0; v < variables.size(); ++v) {
        const QVector<int> columns = frame.observationsOf(variables[v]);
        const QColor color = paletteColor(v);
        const QString key = QString::number(v);
        if (asBand) {
            const QVector<QPointF> lower = plottable(curve(frame, bands.minimum, columns), false, logY);
            const QVector<QPointF> upper = plottable(curve(frame, bands.maximum, columns), false, logY);
            panel.band("band" + key, lower, upper, faded(color),
                       tr("range of %1 selected points: %2").arg(shown.size()).arg(variables[v]));
            all << lower << upper;
        } else {
            for (int s = 1; s < shown.size(); ++s) {
                const QVector<QPointF> line =
                        plottable(curve(frame, Y.value(shown[s]), columns), false, logY);
                panel.line(QString("line%1_%2").arg(key).arg(s), line, pen(faded(color, 110), 1),
                           s == 1 ? tr("other selected points: %1").arg(variables[v]) : QString());
                all << line;
            }
        }
        // The best point as a smooth curve when the model can be simulated,
        // otherwise through its values at the observation times.
        const QVector<QPointF> smooth = plottable(bestCurve(state, shown.first(), variables[v]), false, logY);
        const QVector<QPointF> best = plottable(curve(frame, Y.value(shown.first()), columns), false, logY);
        panel.line("curve" + key, smooth, pen(color.darker(120), 2.5), tr("best fit: %1").arg(variables[v]));
        panel.line("best" + key, smooth.isEmpty() ? best : QVector<QPointF>(), pen(color.darker(120), 2.5),
                   tr("best fit: %1").arg(variables[v]));
        all << smooth;
        const QVector<QPointF> observed = plottable(curve(frame, frame.observedValues, columns), false, logY);
        panel.scatter("observed" + key, observed, color.lighter(160), 9, tr("observed: %1").arg(variables[v]),
                      true);
        all << best << observed;
    }
    panel.setTitle(tr("Model and observations (%1 selected points)").arg(shown.size()));
    panel.finish(rangeOf(all, false, logY), tr("Time"),
                 variables.size() == 1 ? variables.first() : tr("Observation variables"));
}

void ObservationSimulationView::drawObservedPredicted(const ResultViewState &state, const QVector<int> &shown)
{
    const ResultFrame &frame = *state.frame;
    const DoubleMatrix &Y = state.Y();
    const bool log = m_logY->isChecked();
    ChartPanel &panel = *m_observedPredicted;
    panel.begin();
    QVector<QPointF> others;
    for (int s = 1; s < shown.size(); ++s)
        for (int j = 0; j < frame.observationCount(); ++j)
            others << QPointF(frame.observedValues[j], Y.value(shown[s]).value(j, kNaN));
    others = panel.thinned(others, rangeOf(others, log, log));
    panel.scatter("others", others, QColor(160, 160, 160, 120), 5,
                  others.isEmpty() ? QString() : tr("others"));

    QVector<QPointF> all = others;
    const QStringList variables = frame.distinctVariables();
    for (int v = 0; v < variables.size(); ++v) {
        QVector<QPointF> best;
        for (int j : frame.observationsOf(variables[v]))
            best << QPointF(frame.observedValues[j], Y.value(shown.first()).value(j, kNaN));
        best = plottable(best, log, log);
        panel.scatter("best" + QString::number(v), best, paletteColor(v), 9,
                      tr("best: %1").arg(variables[v]));
        all << best;
    }
    PlotRange range = rangeOf(all, log, log);
    // The same span on both axes, so the identity is the diagonal.
    range.xMin = range.yMin = std::min(range.xMin, range.yMin);
    range.xMax = range.yMax = std::max(range.xMax, range.yMax);
    QPen identity(Qt::black);
    identity.setStyle(Qt::DashLine);
    // Beyond the axes both ways: the plot area clips it at the rounded ends.
    const double reach = range.xMax - range.xMin;
    const double low = range.logX ? range.xMin / 1e3 : range.xMin - reach;
    const double high = range.logX ? range.xMax * 1e3 : range.xMax + reach;
    panel.line("identity", {{low, low}, {high, high}}, identity, tr("identity"));
    panel.setTitle(tr("Observed against predicted"));
    panel.finish(range, tr("Observed"), tr("Predicted"));
}

void ObservationSimulationView::drawResiduals(const ResultViewState &state, int best)
{
    const ResultFrame &frame = *state.frame;
    const QVector<double> &predicted = state.Y().value(best);
    ChartPanel &panel = *m_residuals;
    panel.begin();
    QVector<QPointF> all;
    const QStringList variables = frame.distinctVariables();
    for (int v = 0; v < variables.size(); ++v) {
        QVector<QPointF> residuals;
        for (int j : frame.observationsOf(variables[v]))
            residuals << QPointF(frame.observationTimes[j],
                                 frame.observedValues[j] - predicted.value(j, kNaN));
        residuals = plottable(residuals, false, false);
        panel.scatter("residuals" + QString::number(v), residuals, paletteColor(v), 8, variables[v]);
        all << residuals;
    }
    PlotRange range = rangeOf(all, false, false);
    // Zero in the middle, so the sign of a trend shows at a glance.
    const double extent = std::max(std::abs(range.yMin), std::abs(range.yMax));
    range.yMin = -extent;
    range.yMax = extent;
    QPen zero(Qt::black);
    zero.setStyle(Qt::DashLine);
    const double reach = range.xMax - range.xMin;
    panel.line("zero", {{range.xMin - reach, 0}, {range.xMax + reach, 0}}, zero);
    panel.setTitle(tr("Residuals of the best point"));
    panel.finish(range, tr("Time"), tr("observed - predicted"));
}

void ObservationSimulationView::fillTable(const ResultViewState &state, const QVector<int> &shown)
{
    const ResultFrame &frame = *state.frame;
    const ColumnBands bands = columnBands(state.Y(), shown, frame.observationCount());
    QVector<double> best;
    for (int j = 0; j < frame.observationCount(); ++j)
        best << state.Y().value(shown.first()).value(j, kNaN);
    m_table.columnNames =
            QStringList{"time", "observed", "best fit", "selected min", "selected median", "selected max"};
    m_table.columns = {frame.observationTimes, frame.observedValues, best,
                       bands.minimum,          bands.median,         bands.maximum};
    m_table.rowLabels = frame.observationVariables;
}
