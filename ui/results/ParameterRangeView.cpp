#include "ParameterRangeView.h"

#include "ChartPanel.h"
#include "CorrelationTable.h"
#include "analysis/ClusterStatistics.h"

#include <QChartView>
#include <QHeaderView>
#include <QLabel>
#include <QPen>
#include <QSplitter>
#include <QTableWidget>
#include <QVBoxLayout>

#include <cmath>
#include <limits>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

QString number(double v)
{
    return std::isfinite(v) ? QString::number(v, 'g', 6) : QStringLiteral("-");
}

QPen barPen(const QColor &color, qreal width, Qt::PenStyle style = Qt::SolidLine)
{
    QPen pen(color, width, style, Qt::FlatCap);
    return pen;
}

QVector<double> columnOf(const DoubleMatrix &rows, const QVector<int> &points, int c)
{
    QVector<double> values;
    for (int i : points)
        values << rows.value(i).value(c, kNaN);
    return values;
}

QVector<int> everyPoint(int n)
{
    QVector<int> points(n);
    for (int i = 0; i < n; ++i)
        points[i] = i;
    return points;
}

// A bar from x0 to x1 at height y; none when an end is unknown.
QVector<QPointF> segment(double x0, double x1, double y)
{
    if (std::isnan(x0) || std::isnan(x1))
        return {};
    return {{x0, y}, {x1, y}};
}

// One parameter's row of the chart, in chart positions.
struct RangeRow {
    double theoryLow, theoryHigh, min, max, best, ciLow, ciHigh;
    bool domainKnown;
};

QTableWidgetItem *cell(const QString &text)
{
    auto *item = new QTableWidgetItem(text);
    item->setFlags(Qt::ItemIsSelectable | Qt::ItemIsEnabled);
    return item;
}

} // namespace

double RangeScale::position(double value) const
{
    if (log && value <= 0)
        return -kInf;
    const double v = log ? std::log10(value) : value;
    return high > low ? (v - low) / (high - low) : 0.5;
}

RangeScale rangeScaleFor(const ParameterSpecificationRow &row, bool log, const QVector<double> &values)
{
    RangeScale scale;
    scale.log = log;
    const auto axis = [log](double v) { return log ? std::log10(v) : v; };
    if (std::isfinite(row.domainLower) && std::isfinite(row.domainUpper) &&
        row.domainLower < row.domainUpper && (!log || row.domainLower > 0)) {
        scale.low = axis(row.domainLower);
        scale.high = axis(row.domainUpper);
        return scale;
    }
    bool any = false;
    for (double v : values) {
        if (!std::isfinite(v) || (log && v <= 0))
            continue;
        scale.low = any ? std::min(scale.low, axis(v)) : axis(v);
        scale.high = any ? std::max(scale.high, axis(v)) : axis(v);
        any = true;
    }
    return scale;
}

ParameterRangeView::ParameterRangeView(QObject *parent)
    : ResultView(parent)
{
    auto *splitter = new QSplitter(Qt::Horizontal);
    m_widget = splitter;
    auto *view = new QtCharts::QChartView(splitter);
    view->setObjectName(QStringLiteral("chartView_parameterRange"));
    view->setMinimumSize(300, 220);
    m_chart.reset(new ChartPanel(view));

    auto *side = new QWidget(splitter);
    auto *layout = new QVBoxLayout(side);
    layout->setContentsMargins(0, 0, 0, 0);
    m_source = new QLabel(side);
    m_source->setObjectName(QStringLiteral("label_jacobianSource"));
    m_source->setWordWrap(true);
    m_uncertainty = new QTableWidget(side);
    m_uncertainty->setObjectName(QStringLiteral("tableWidget_parameterUncertainty"));
    m_uncertainty->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_correlation = new QTableWidget(side);
    m_correlation->setObjectName(QStringLiteral("tableWidget_estimateCorrelation"));
    m_correlation->setEditTriggers(QAbstractItemView::NoEditTriggers);
    layout->addWidget(m_source);
    layout->addWidget(m_uncertainty, 3);
    layout->addWidget(new QLabel(tr("Correlation of the estimates (asymptotic):"), side));
    layout->addWidget(m_correlation, 2);
    splitter->addWidget(view);
    splitter->addWidget(side);
    splitter->setSizes({650, 600});
}

ParameterRangeView::~ParameterRangeView() = default;

void ParameterRangeView::redraw(const ResultViewState &state)
{
    m_table = PlotTable();
    const QVector<int> shown = state.hasIteration() ? state.shownPoints() : QVector<int>();
    if (shown.isEmpty() || state.frame->parameterCount() == 0) {
        m_chart->showMessage(shown.isEmpty() ? nothingToShowText(state)
                                             : tr("Nothing to show: the result holds no parameters."));
        m_uncertainty->setRowCount(0);
        m_correlation->setRowCount(0);
        m_source->clear();
        return;
    }
    drawRanges(state, shown);
    fillUncertainty(state, shown);
    fillTable(state, shown);
}

// The chart positions of every parameter's row, and the span of the x axis
// that holds the selected ranges and intervals.
struct RangeLayout {
    QVector<RangeRow> rows;
    QVector<RangeScale> scales;
    double low = -0.1;
    double high = 1.1;
};

static RangeLayout layoutRanges(const ResultViewState &state, const QVector<ColumnSummary> &summaries)
{
    const ResultFrame &frame = *state.frame;
    const QVector<int> all = everyPoint(state.parameters().size());
    const QVector<double> &se = state.uncertainty.parameterStandardErrors;
    RangeLayout layout;
    for (int a = 0; a < frame.parameterCount(); ++a) {
        const ParameterSpecificationRow bounds = frame.parameterRows[a];
        const ColumnSummary &s = summaries[a];
        const bool log = frame.logScale[a] && s.minimum > 0;
        const RangeScale scale = rangeScaleFor(bounds, log, columnOf(state.parameters(), all, a));
        const double halfWidth = normalQuantile975 * se.value(a, kNaN);
        RangeRow row{std::isnan(bounds.theoreticalLower) ? -kInf : scale.position(bounds.theoreticalLower),
                     std::isnan(bounds.theoreticalUpper) ? kInf : scale.position(bounds.theoreticalUpper),
                     scale.position(s.minimum),
                     scale.position(s.maximum),
                     scale.position(s.best),
                     scale.position(s.best - halfWidth),
                     scale.position(s.best + halfWidth),
                     std::isfinite(bounds.domainLower) && bounds.domainLower < bounds.domainUpper};
        for (double v : {row.min, row.max, row.ciLow, row.ciHigh})
            if (std::isfinite(v)) {
                layout.low = std::min(layout.low, std::max(v, -3.0));
                layout.high = std::max(layout.high, std::min(v, 4.0));
            }
        layout.rows << row;
        layout.scales << scale;
    }
    const double pad = 0.03 * (layout.high - layout.low);
    layout.low -= pad;
    layout.high += pad;
    return layout;
}

void ParameterRangeView::drawRanges(const ResultViewState &state, const QVector<int> &shown)
{
    const ResultFrame &frame = *state.frame;
    const int parameters = frame.parameterCount();
    const QVector<ColumnSummary> summaries =
            summariseColumns(state.parameters(), shown, shown.first(), parameters);
    const RangeLayout layout = layoutRanges(state, summaries);
    const double low = layout.low, high = layout.high;
    const auto clip = [low, high](double v) { return std::isnan(v) ? v : std::clamp(v, low, high); };

    ChartPanel &panel = *m_chart;
    panel.begin();
    QStringList labels;
    QVector<double> positions;
    QVector<QPointF> best;
    for (int a = 0; a < parameters; ++a) {
        const RangeRow &r = layout.rows[a];
        const double y = parameters - a;
        const QString key = QString::number(a);
        const bool first = a == 0;
        panel.line("theory" + key, segment(clip(r.theoryLow), clip(r.theoryHigh), y),
                   barPen(QColor(120, 120, 120), 1.5, Qt::DashLine), first ? tr("bounds") : QString());
        panel.line("domain" + key, r.domainKnown ? segment(0, 1, y) : QVector<QPointF>(),
                   barPen(QColor(173, 216, 230), 14), first ? tr("domain") : QString());
        panel.line("selected" + key, segment(clip(r.min), clip(r.max), y), barPen(QColor(31, 119, 180), 6),
                   first ? tr("selected") : QString());
        panel.line("interval" + key, segment(clip(r.ciLow), clip(r.ciHigh), y + 0.17),
                   barPen(QColor(50, 50, 50), 3), first ? tr("95 % CI") : QString());
        drawGroupRanges(state, shown, a, layout.scales[a], y, low, high);
        if (std::isfinite(r.best))
            best << QPointF(clip(r.best), y);
        labels << frame.parameterNames[a];
        positions << y;
    }
    panel.scatter("best", best, QColor(Qt::red), 10, tr("best"), true);
    panel.setCategoryY(labels, positions);
    panel.setTitle(tr("Ranges over %1 selected points").arg(shown.size()));
    PlotRange range;
    range.xMin = low;
    range.xMax = high;
    range.yMin = 0.4;
    range.yMax = parameters + 0.75;
    panel.finish(range, tr("position in the domain of interest (0 to 1)"), QString());
}

void ParameterRangeView::drawGroupRanges(const ResultViewState &state, const QVector<int> &shown,
                                         int parameter, const RangeScale &scale, double y, double low,
                                         double high)
{
    // Each group's range as a thin bar under the parameter's, in the colour
    // the groups have in the other views: separate minimisers show apart.
    const int groups = std::min(state.grouping.groupCount, maxGroupBars);
    QVector<double> minimum(groups, kInf), maximum(groups, -kInf);
    for (int s = 0; s < shown.size(); ++s) {
        const int g = state.groupAt(s);
        const double v = state.parameters().value(shown[s]).value(parameter, kNaN);
        if (g < 0 || g >= groups || !std::isfinite(v))
            continue;
        minimum[g] = std::min(minimum[g], v);
        maximum[g] = std::max(maximum[g], v);
    }
    const double step = 0.32 / std::max(1, groups);
    for (int g = 0; g < maxGroupBars; ++g) {
        QVector<QPointF> bar;
        if (g < groups && minimum[g] <= maximum[g])
            bar = segment(std::clamp(scale.position(minimum[g]), low, high),
                          std::clamp(scale.position(maximum[g]), low, high), y - 0.14 - g * step);
        // A single value still shows as a short bar.
        if (bar.size() == 2 && bar[1].x() - bar[0].x() < 0.004 * (high - low))
            bar[1].rx() = bar[0].x() + 0.004 * (high - low);
        m_chart->line(QString("group%1_%2").arg(parameter).arg(g), bar, barPen(paletteColor(g), 2.5));
    }
}

void ParameterRangeView::fillUncertainty(const ResultViewState &state, const QVector<int> &shown)
{
    const ResultFrame &frame = *state.frame;
    const AsymptoticUncertainty &u = state.uncertainty;
    m_source->setText(state.jacobianSource);
    const QVector<ColumnSummary> summaries =
            summariseColumns(state.parameters(), shown, shown.first(), frame.parameterCount());
    m_uncertainty->setColumnCount(7);
    m_uncertainty->setHorizontalHeaderLabels(
            {tr("best"), tr("min"), tr("max"), tr("SE"), tr("RSE %"), tr("CI low"), tr("CI high")});
    const QStringList tips{tr("The best point's value"),
                           tr("Smallest value over the selected points"),
                           tr("Largest value over the selected points"),
                           tr("Asymptotic standard error at the best point"),
                           tr("Relative standard error: 100 SE / |best|"),
                           tr("Lower end of the asymptotic 95 % interval: best - 1.96 SE"),
                           tr("Upper end of the asymptotic 95 % interval: best + 1.96 SE")};
    for (int c = 0; c < tips.size(); ++c)
        m_uncertainty->horizontalHeaderItem(c)->setToolTip(tips[c]);
    m_uncertainty->setRowCount(frame.parameterCount());
    m_uncertainty->setVerticalHeaderLabels(frame.parameterNames);
    for (int a = 0; a < frame.parameterCount(); ++a) {
        const ColumnSummary &s = summaries[a];
        const double se = u.parameterStandardErrors.value(a, kNaN);
        const double cells[] = {s.best,
                                s.minimum,
                                s.maximum,
                                se,
                                100 * se / std::abs(s.best),
                                s.best - normalQuantile975 * se,
                                s.best + normalQuantile975 * se};
        for (int c = 0; c < 7; ++c)
            m_uncertainty->setItem(a, c, cell(number(cells[c])));
    }
    m_uncertainty->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    if (u.status == AsymptoticUncertainty::Status::Ok)
        showCorrelationMatrix(m_correlation, u.parameterCorrelation, frame.parameterNames);
    else
        m_correlation->setRowCount(0);
}

void ParameterRangeView::fillTable(const ResultViewState &state, const QVector<int> &shown)
{
    const ResultFrame &frame = *state.frame;
    const QVector<ColumnSummary> summaries =
            summariseColumns(state.parameters(), shown, shown.first(), frame.parameterCount());
    m_table.columnNames =
            QStringList{"best",         "selected min",      "selected max",      "domain lower",
                        "domain upper", "theoretical lower", "theoretical upper", "standard error"};
    m_table.columns = DoubleMatrix(m_table.columnNames.size());
    for (int a = 0; a < frame.parameterCount(); ++a) {
        const ParameterSpecificationRow &row = frame.parameterRows[a];
        const double values[] = {
                summaries[a].best,    summaries[a].minimum,
                summaries[a].maximum, row.domainLower,
                row.domainUpper,      row.theoreticalLower,
                row.theoreticalUpper, state.uncertainty.parameterStandardErrors.value(a, kNaN)};
        for (int c = 0; c < m_table.columns.size(); ++c)
            m_table.columns[c] << values[c];
    }
    m_table.rowLabels = frame.parameterNames;
}
