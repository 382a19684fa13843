#include "ParameterView.h"

#include "ChartGrid.h"
#include "ChartPanel.h"
#include "analysis/ClusterStatistics.h"

#include <QHeaderView>
#include <QSplitter>
#include <QTableWidget>
#include <QVBoxLayout>

#include <cmath>
#include <limits>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

QString number(double v)
{
    return std::isnan(v) ? QStringLiteral("-") : QString::number(v, 'g', 6);
}

QTableWidgetItem *readOnlyItem(const QString &text)
{
    auto *item = new QTableWidgetItem(text);
    item->setFlags(Qt::ItemIsSelectable | Qt::ItemIsEnabled);
    return item;
}

bool allPositive(const QVector<QPointF> &points)
{
    for (const QPointF &p : points)
        if (std::isfinite(p.y()) && p.y() <= 0)
            return false;
    return true;
}

} // namespace

double stripOffset(int s)
{
    const double golden = 0.6180339887498949;
    return std::fmod(s * golden, 1.0) * 1.6 - 0.8;
}

ParameterView::ParameterView(QObject *parent)
    : ResultView(parent)
{
    auto *splitter = new QSplitter(Qt::Horizontal);
    m_widget = splitter;
    m_grid = new ChartGrid(QStringLiteral("chartView_parameters"), 6, splitter);
    m_summary = new QTableWidget(splitter);
    m_summary->setObjectName(QStringLiteral("tableWidget_parameterSummary"));
    m_summary->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_summary->setColumnCount(4);
    m_summary->setHorizontalHeaderLabels({tr("best"), tr("median"), tr("min"), tr("max")});
    m_summary->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    splitter->addWidget(m_grid);
    splitter->addWidget(m_summary);
    splitter->setSizes({900, 350});
}

void ParameterView::redraw(const ResultViewState &state)
{
    m_table = PlotTable();
    const QVector<int> shown = state.hasIteration() ? state.shownPoints() : QVector<int>();
    const int parameters = state.hasIteration() ? state.frame->parameterCount() : 0;
    if (shown.isEmpty() || parameters == 0) {
        m_grid->setCount(1);
        m_grid->panel(0)->showMessage(shown.isEmpty()
                                              ? nothingToShowText(state)
                                              : tr("Nothing to show: the result holds no parameters."));
        m_summary->setRowCount(0);
        return;
    }
    m_grid->setCount(parameters);
    for (int a = 0; a < parameters; ++a)
        drawStrip(state, shown, a);
    fillSummary(state, shown);
    fillTable(state, shown);
}

void ParameterView::drawStrip(const ResultViewState &state, const QVector<int> &shown, int parameter)
{
    const DoubleMatrix &values = state.parameters();
    const ResultFrame &frame = *state.frame;
    QVector<QVector<QPointF>> byGroup(std::max(1, state.grouping.groupCount) + 1);
    QVector<QPointF> all;
    for (int s = 0; s < shown.size(); ++s) {
        const QPointF point(stripOffset(s), values.value(shown[s]).value(parameter, kNaN));
        byGroup[state.groupAt(s) + 1] << point; // slot 0: no group
        all << point;
    }
    const bool log = frame.logScale.value(parameter) && allPositive(all);
    PlotRange range = rangeOf(all, false, log);
    range.xMin = -1;
    range.xMax = 1;
    ChartPanel &panel = *m_grid->panel(parameter);
    panel.begin();
    for (int g = 0; g < byGroup.size(); ++g)
        // Dots of a strip need no finer place than their own size.
        panel.scatter("group" + QString::number(g), panel.thinned(byGroup[g], range, 7),
                      g == 0 ? QColor(Qt::gray) : paletteColor(g - 1), 7);
    panel.scatter("best", plottable({all.first()}, false, log), QColor(Qt::red), 12, tr("best"), true);
    const bool fixed = isFixedParameter(frame.parameterRows.value(parameter, {kNaN, kNaN, kNaN, kNaN}));
    panel.setTitle(frame.parameterNames[parameter] + (fixed ? tr(" (fixed)") : QString()));
    panel.setXLabelsVisible(false);
    panel.finish(range, QString(), QString());
}

void ParameterView::fillSummary(const ResultViewState &state, const QVector<int> &shown)
{
    const ResultFrame &frame = *state.frame;
    const QVector<ColumnSummary> summaries =
            summariseColumns(state.parameters(), shown, shown.first(), frame.parameterCount());
    m_summary->setRowCount(summaries.size());
    m_summary->setVerticalHeaderLabels(frame.parameterNames);
    for (int a = 0; a < summaries.size(); ++a) {
        const ColumnSummary &s = summaries[a];
        const double cells[] = {s.best, s.median, s.minimum, s.maximum};
        for (int c = 0; c < 4; ++c)
            m_summary->setItem(a, c, readOnlyItem(number(cells[c])));
    }
}

void ParameterView::fillTable(const ResultViewState &state, const QVector<int> &shown)
{
    const ResultFrame &frame = *state.frame;
    m_table.columnNames << QStringLiteral("SSR") << QStringLiteral("group") << frame.parameterNames;
    m_table.columns = DoubleMatrix(2 + frame.parameterCount());
    for (int s = 0; s < shown.size(); ++s) {
        const int i = shown[s];
        m_table.rowLabels << QStringLiteral("point ") + QString::number(i);
        m_table.columns[0] << state.ssr()[i];
        m_table.columns[1] << (state.groupAt(s) >= 0 ? state.groupAt(s) + 1.0 : kNaN);
        for (int a = 0; a < frame.parameterCount(); ++a)
            m_table.columns[2 + a] << state.parameters().value(i).value(a, kNaN);
    }
}
