#include "SsrParameterView.h"

#include "ChartGrid.h"
#include "ChartPanel.h"
#include "analysis/SsrEnvelope.h"

#include <QPen>

#include <cmath>
#include <limits>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

} // namespace

SsrParameterView::SsrParameterView(QObject *parent)
    : ResultView(parent)
{
    m_grid = new ChartGrid(QStringLiteral("chartView_SSR_parameter"), 4);
}

QWidget *SsrParameterView::widget() const
{
    return m_grid;
}

int SsrParameterView::envelopeBins(int points)
{
    return std::clamp(points / 4, 5, 60);
}

void SsrParameterView::redraw(const ResultViewState &state)
{
    m_table = PlotTable();
    m_parameters.clear();
    m_envelopes.clear();
    if (state.hasIteration()) {
        for (int a : state.frame->searchParameter)
            if (a >= 0)
                m_parameters << a;
        if (m_parameters.isEmpty())
            for (int a = 0; a < state.frame->parameterCount(); ++a)
                m_parameters << a;
    }
    const QVector<int> shown = state.hasIteration() ? state.shownPoints() : QVector<int>();
    if (shown.isEmpty() || m_parameters.isEmpty()) {
        m_grid->setCount(1);
        m_grid->panel(0)->showMessage(shown.isEmpty()
                                              ? nothingToShowText(state)
                                              : tr("Nothing to show: the result holds no parameters."));
        return;
    }
    QVector<bool> selected(state.ssr().size(), false);
    for (int i : shown)
        selected[i] = true;
    m_grid->setCount(m_parameters.size());
    for (int p = 0; p < m_parameters.size(); ++p)
        drawPanel(state, p, m_parameters[p], selected);
    fillTable(state, selected);
}

void SsrParameterView::drawPanel(const ResultViewState &state, int panelIndex, int parameter,
                                 const QVector<bool> &selected)
{
    const DoubleMatrix &values = state.parameters();
    const QVector<double> &ssr = state.ssr();
    const QVector<int> shown = state.shownPoints();
    QVector<double> column;
    QVector<QPointF> chosen, others;
    bool positive = true;
    for (int i = 0; i < ssr.size(); ++i) {
        const double v = values.value(i).value(parameter, kNaN);
        column << v;
        positive = positive && !(v <= 0);
        if (!selected[i])
            others << QPointF(v, ssr[i]);
    }
    for (int i : shown)
        chosen << QPointF(column[i], ssr[i]);
    const bool logX = state.frame->logScale.value(parameter) && positive;
    // One range over all points: an empty set of others must not widen it.
    const PlotRange range = rangeOf(chosen + others, logX, true);
    const QVector<QPointF> envelope =
            plottable(lowerEnvelope(column, ssr, envelopeBins(ssr.size()), logX), logX, true);
    m_envelopes << envelope;

    ChartPanel &panel = *m_grid->panel(panelIndex);
    panel.begin();
    panel.scatter("others", panel.thinned(others, range), QColor(190, 190, 190), 5, tr("other points"));
    panel.scatter("selected", panel.thinned(chosen, range), QColor(31, 119, 180), 6, tr("selected points"));
    QPen pen(QColor(214, 39, 40));
    pen.setWidthF(2);
    panel.line("envelope", envelope, pen, tr("lower envelope"));
    panel.scatter("best", plottable({chosen.first()}, logX, true), QColor(Qt::red), 11, tr("best"), true);
    panel.setTitle(state.frame->parameterNames[parameter]);
    panel.finish(range, state.frame->parameterNames[parameter], tr("SSR"));
}

void SsrParameterView::fillTable(const ResultViewState &state, const QVector<bool> &selected)
{
    const ResultFrame &frame = *state.frame;
    const QVector<double> &ssr = state.ssr();
    m_table.columnNames << QStringLiteral("SSR") << QStringLiteral("selected") << frame.parameterNames;
    m_table.columns = DoubleMatrix(2 + frame.parameterCount());
    for (int i = 0; i < ssr.size(); ++i) {
        m_table.rowLabels << QStringLiteral("point ") + QString::number(i);
        m_table.columns[0] << ssr[i];
        m_table.columns[1] << (selected[i] ? 1.0 : 0.0);
        for (int a = 0; a < frame.parameterCount(); ++a)
            m_table.columns[2 + a] << state.parameters().value(i).value(a, kNaN);
    }
    for (int p = 0; p < m_parameters.size(); ++p) {
        const QString &name = frame.parameterNames[m_parameters[p]];
        m_table.columnNames << "envelope " + name << "envelope SSR " + name;
        QVector<double> x, y;
        for (const QPointF &point : m_envelopes[p]) {
            x << point.x();
            y << point.y();
        }
        m_table.columns << x << y;
    }
}
