#include "VariableVariabilityView.h"

#include "ChartGrid.h"
#include "ChartPanel.h"
#include "analysis/ClusterStatistics.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPen>
#include <QPushButton>
#include <QVBoxLayout>

#include <limits>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

QVector<QPointF> curve(const QVector<double> &times, const QVector<double> &values)
{
    QVector<QPointF> points;
    for (int r = 0; r < times.size(); ++r)
        points << QPointF(times[r], values.value(r, kNaN));
    return points;
}

} // namespace

VariableVariabilityView::VariableVariabilityView(QObject *parent)
    : ResultView(parent)
{
    m_widget = new QWidget;
    auto *layout = new QVBoxLayout(m_widget);
    layout->setContentsMargins(0, 0, 0, 0);
    auto *top = new QHBoxLayout;
    m_caption = new QLabel(m_widget);
    m_caption->setObjectName(QStringLiteral("label_variabilityCaption"));
    m_caption->setWordWrap(true);
    m_logY = new QCheckBox(tr("y-axis log-scale"), m_widget);
    m_logY->setObjectName(QStringLiteral("checkBox_variabilityLogY"));
    // Not redrawn by the refresh after each iteration: the button brings it
    // up to date.
    auto *update = new QPushButton(tr("update plot"), m_widget);
    update->setObjectName(QStringLiteral("pushButton_updateVariabilities"));
    top->addWidget(m_caption, 1);
    top->addWidget(m_logY);
    top->addWidget(update);
    connect(update, &QPushButton::clicked, this, &VariableVariabilityView::optionsChanged);
    layout->addLayout(top);
    m_grid = new ChartGrid(QStringLiteral("chartView_variableVariabilities"), 4, m_widget);
    layout->addWidget(m_grid, 1);
    connect(m_logY, &QCheckBox::toggled, this, &VariableVariabilityView::optionsChanged);
}

void VariableVariabilityView::redraw(const ResultViewState &state)
{
    m_table = PlotTable();
    QVector<int> withSolution;
    if (state.hasIteration())
        for (int i : state.shownPoints())
            if (!state.result->solutions.value(i).isEmpty())
                withSolution << i;
    const int variables = state.hasIteration() ? state.frame->stateNames.size() : 0;
    if (withSolution.isEmpty() || variables == 0) {
        m_caption->clear();
        m_grid->setCount(1);
        m_grid->panel(0)->showMessage(state.hasIteration() && !state.shownPoints().isEmpty()
                                              ? tr("Nothing to show: the result holds no model solutions.")
                                              : nothingToShowText(state));
        return;
    }
    // The solution rows lie at the solution times; a record without them
    // numbers the rows.
    int rows = 0;
    for (int i : withSolution)
        rows = std::max(rows, state.result->solutions[i].size());
    QVector<double> times = state.result->solutionTimes;
    if (times.size() != rows) {
        times.clear();
        for (int r = 0; r < rows; ++r)
            times << r;
    }
    m_caption->setText(tr("Median (line) and min-max range (band) of every state variable over %1 selected "
                          "points of iteration %2, the newest: the record keeps the model solutions of its "
                          "newest iteration only.")
                               .arg(withSolution.size())
                               .arg(state.iteration));
    m_grid->setCount(variables);
    m_table.columnNames << QStringLiteral("time");
    m_table.columns << times;
    for (int v = 0; v < variables; ++v)
        drawState(state, withSolution, v, times);
}

void VariableVariabilityView::drawState(const ResultViewState &state, const QVector<int> &withSolution,
                                        int variable, const QVector<double> &times)
{
    DoubleMatrix trajectories; // one row per point, one column per time
    for (int i : withSolution) {
        QVector<double> trajectory;
        for (const QVector<double> &row : state.result->solutions[i])
            trajectory << row.value(variable, kNaN);
        trajectories << trajectory;
    }
    QVector<int> all(trajectories.size());
    for (int i = 0; i < all.size(); ++i)
        all[i] = i;
    const ColumnBands bands = columnBands(trajectories, all, times.size());
    const bool log = m_logY->isChecked();
    const QVector<QPointF> lower = plottable(curve(times, bands.minimum), false, log);
    const QVector<QPointF> upper = plottable(curve(times, bands.maximum), false, log);
    const QVector<QPointF> median = plottable(curve(times, bands.median), false, log);
    const QVector<QPointF> best = plottable(curve(times, trajectories.first()), false, log);

    ChartPanel &panel = *m_grid->panel(variable);
    panel.begin();
    const QColor color = paletteColor(variable);
    // A band needs both edges at the same times.
    const bool bandDrawable = lower.size() == upper.size();
    panel.band("band", bandDrawable ? lower : QVector<QPointF>(), bandDrawable ? upper : QVector<QPointF>(),
               faded(color, 90), tr("min-max"));
    QPen medianPen(color.darker(130));
    medianPen.setWidthF(2);
    panel.line("median", median, medianPen, tr("median"));
    QPen bestPen(Qt::black);
    bestPen.setStyle(Qt::DashLine);
    panel.line("best", best, bestPen, tr("best point"));
    const QString &name = state.frame->stateNames[variable];
    panel.setTitle(name);
    panel.finish(rangeOf(lower + upper + median, false, log), tr("Time"), name);

    m_table.columnNames << name + " min" << name + " median" << name + " max";
    m_table.columns << bands.minimum << bands.median << bands.maximum;
}
