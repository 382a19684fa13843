#include "ParameterPairsView.h"

#include "ChartPanel.h"
#include "CorrelationTable.h"
#include "analysis/ClusterStatistics.h"

#include <QChartView>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QSplitter>
#include <QTableWidget>
#include <QVBoxLayout>

#include <cmath>
#include <limits>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

// The value of choice c (a search variable's parameter, or past the last
// one the SSR) at point i.
double valueOf(const ResultViewState &state, int choice, int i)
{
    const ResultFrame &frame = *state.frame;
    if (choice >= frame.searchCount())
        return state.ssr().value(i, kNaN);
    const int parameter = frame.searchParameter[choice];
    return parameter >= 0 ? state.parameters().value(i).value(parameter, kNaN)
                          : state.X().value(i).value(choice, kNaN);
}

bool logFor(const ResultViewState &state, int choice, const QVector<QPointF> &points, bool xAxis)
{
    const ResultFrame &frame = *state.frame;
    const bool wanted = choice >= frame.searchCount() || frame.logScale.value(frame.searchParameter[choice]);
    if (!wanted)
        return false;
    for (const QPointF &p : points)
        if ((xAxis ? p.x() : p.y()) <= 0)
            return false;
    return true;
}

} // namespace

ParameterPairsView::ParameterPairsView(QObject *parent)
    : ResultView(parent)
{
    auto *splitter = new QSplitter(Qt::Horizontal);
    m_widget = splitter;
    auto *left = new QWidget(splitter);
    auto *layout = new QVBoxLayout(left);
    layout->setContentsMargins(0, 0, 0, 0);
    auto *choices = new QHBoxLayout;
    m_x = new QComboBox(left);
    m_x->setObjectName(QStringLiteral("comboBox_pairX"));
    m_y = new QComboBox(left);
    m_y->setObjectName(QStringLiteral("comboBox_pairY"));
    choices->addWidget(new QLabel(tr("x axis:"), left));
    choices->addWidget(m_x);
    choices->addWidget(new QLabel(tr("y axis:"), left));
    choices->addWidget(m_y);
    choices->addStretch();
    layout->addLayout(choices);
    auto *view = new QtCharts::QChartView(left);
    view->setObjectName(QStringLiteral("chartView_parameterParameter"));
    view->setMinimumSize(300, 220);
    m_chart.reset(new ChartPanel(view));
    layout->addWidget(view, 1);

    auto *right = new QWidget(splitter);
    auto *rightLayout = new QVBoxLayout(right);
    rightLayout->setContentsMargins(0, 0, 0, 0);
    rightLayout->addWidget(
            new QLabel(tr("Correlation of X over the selected points (click a cell to plot the "
                          "pair):"),
                       right));
    m_correlation = new QTableWidget(right);
    m_correlation->setObjectName(QStringLiteral("tableWidget_X_corr"));
    m_correlation->setEditTriggers(QAbstractItemView::NoEditTriggers);
    rightLayout->addWidget(m_correlation, 1);
    splitter->addWidget(left);
    splitter->addWidget(right);
    splitter->setSizes({600, 400});

    connect(m_x, qOverload<int>(&QComboBox::activated), this, &ParameterPairsView::optionsChanged);
    connect(m_y, qOverload<int>(&QComboBox::activated), this, &ParameterPairsView::optionsChanged);
    connect(m_correlation, &QTableWidget::cellClicked, this, &ParameterPairsView::choosePair);
}

ParameterPairsView::~ParameterPairsView() = default;

void ParameterPairsView::choosePair(int row, int column)
{
    if (row == column)
        return;
    m_x->setCurrentIndex(column);
    m_y->setCurrentIndex(row);
    emit optionsChanged();
}

void ParameterPairsView::updateChoices(const ResultFrame &frame)
{
    const QStringList names = QStringList(frame.searchNames) << tr("SSR");
    if (names == m_names)
        return;
    m_names = names;
    const QSignalBlocker blockX(m_x), blockY(m_y);
    m_x->clear();
    m_y->clear();
    m_x->addItems(names);
    m_y->addItems(names);
    // The first two parameters, or the only one against the SSR.
    m_x->setCurrentIndex(0);
    m_y->setCurrentIndex(std::min(1, names.size() - 1));
}

void ParameterPairsView::redraw(const ResultViewState &state)
{
    m_table = PlotTable();
    const QVector<int> shown = state.hasIteration() ? state.shownPoints() : QVector<int>();
    if (shown.isEmpty() || state.frame->searchCount() == 0) {
        m_chart->showMessage(shown.isEmpty() ? nothingToShowText(state)
                                             : tr("Nothing to show: no parameter is estimated."));
        m_correlation->setRowCount(0);
        m_correlation->setColumnCount(0);
        return;
    }
    updateChoices(*state.frame);
    drawPairs(state, shown);
    showCorrelationMatrix(m_correlation, correlationMatrix(state.X(), shown, state.frame->searchCount()),
                          state.frame->searchNames);
    fillTable(state, shown);
}

void ParameterPairsView::drawPairs(const ResultViewState &state, const QVector<int> &shown)
{
    const int cx = std::max(0, m_x->currentIndex()), cy = std::max(0, m_y->currentIndex());
    QVector<QVector<QPointF>> byGroup(std::max(1, state.grouping.groupCount) + 1);
    QVector<QPointF> all;
    for (int s = 0; s < shown.size(); ++s) {
        const QPointF point(valueOf(state, cx, shown[s]), valueOf(state, cy, shown[s]));
        byGroup[state.groupAt(s) + 1] << point;
        all << point;
    }
    const bool logX = logFor(state, cx, all, true), logY = logFor(state, cy, all, false);
    const PlotRange range = rangeOf(all, logX, logY);
    ChartPanel &panel = *m_chart;
    panel.begin();
    for (int g = 0; g < byGroup.size(); ++g) {
        const QVector<QPointF> &points = byGroup[g];
        const QVector<QPointF> drawn = panel.thinned(points, range);
        const QString legend = points.isEmpty() ? QString()
                               : g == 0         ? tr("no group: %1").arg(points.size())
                                                : tr("group %1: %2").arg(g).arg(points.size());
        panel.scatter("group" + QString::number(g), drawn, g == 0 ? QColor(Qt::gray) : paletteColor(g - 1), 8,
                      legend);
    }
    panel.scatter("best", plottable({all.first()}, logX, logY), QColor(Qt::red), 12, tr("best"), true);
    panel.setTitle(tr("%1 against %2 in %3 groups")
                           .arg(m_names.value(cy), m_names.value(cx))
                           .arg(state.grouping.groupCount));
    panel.finish(range, m_names.value(cx), m_names.value(cy));
}

void ParameterPairsView::fillTable(const ResultViewState &state, const QVector<int> &shown)
{
    const ResultFrame &frame = *state.frame;
    m_table.columnNames << QStringLiteral("group") << QStringLiteral("SSR") << frame.searchNames;
    m_table.columns = DoubleMatrix(2 + frame.searchCount());
    for (int s = 0; s < shown.size(); ++s) {
        m_table.rowLabels << QStringLiteral("point ") + QString::number(shown[s]);
        m_table.columns[0] << (state.groupAt(s) >= 0 ? state.groupAt(s) + 1.0 : kNaN);
        for (int c = 0; c <= frame.searchCount(); ++c)
            m_table.columns[1 + c] << valueOf(state, c == 0 ? frame.searchCount() : c - 1, shown[s]);
    }
}
