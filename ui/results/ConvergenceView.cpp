#include "ConvergenceView.h"

#include "ChartPanel.h"
#include "analysis/ClusterStatistics.h"

#include <QChartView>
#include <QHBoxLayout>
#include <QPen>
#include <QPushButton>
#include <QVBoxLayout>

ConvergenceView::ConvergenceView(QObject *parent)
    : QObject(parent)
{
    m_widget = new QWidget;
    auto *layout = new QVBoxLayout(m_widget);
    auto *view = new QtCharts::QChartView(m_widget);
    view->setObjectName(QStringLiteral("chartView_convergence"));
    m_chart.reset(new ChartPanel(view));
    layout->addWidget(view, 1);
    auto *buttons = new QHBoxLayout;
    auto *csv = new QPushButton(tr("save plot as CSV"), m_widget);
    csv->setObjectName(QStringLiteral("pushButton_saveConvergenceCSV"));
    auto *pdf = new QPushButton(tr("save plot as PDF"), m_widget);
    pdf->setObjectName(QStringLiteral("pushButton_saveConvergencePDF"));
    buttons->addStretch();
    buttons->addWidget(csv);
    buttons->addWidget(pdf);
    layout->addLayout(buttons);
    connect(csv, &QPushButton::clicked, this, &ConvergenceView::saveCsvRequested);
    connect(pdf, &QPushButton::clicked, this, &ConvergenceView::savePdfRequested);
    draw(compResult());
}

ConvergenceView::~ConvergenceView() = default;

void ConvergenceView::draw(const compResult &result)
{
    const QVector<SsrQuartiles> quartiles = ssrQuartiles(result.SSR);
    m_table = PlotTable();
    m_table.columnNames = QStringList{
            "iteration", "min", "1/4 percentile", "median", "3/4 percentile", "points with an SSR"};
    m_table.columns = DoubleMatrix(6);
    QVector<QPointF> lines[4];
    for (int k = 0; k < quartiles.size(); ++k) {
        const SsrQuartiles &q = quartiles[k];
        const double values[] = {double(k), q.minimum,       q.lowerQuartile,
                                 q.median,  q.upperQuartile, double(q.finiteCount)};
        for (int c = 0; c < 6; ++c)
            m_table.columns[c] << values[c];
        for (int l = 0; l < 4; ++l)
            lines[l] << QPointF(k, values[l + 1]);
    }
    ChartPanel &panel = *m_chart;
    if (quartiles.isEmpty()) {
        panel.showMessage(tr("No iteration yet: the SSR of every iteration shows here during a run."));
        return;
    }
    panel.begin();
    const QString names[] = {tr("minimum"), tr("1/4 percentile"), tr("median"), tr("3/4 percentile")};
    QVector<QPointF> all;
    for (int l = 0; l < 4; ++l) {
        QPen pen(paletteColor(l));
        pen.setWidthF(l == 0 ? 2.5 : 1.5);
        const QVector<QPointF> points = plottable(lines[l], false, true);
        panel.line("line" + QString::number(l), points, pen, names[l]);
        all << points;
    }
    PlotRange range = rangeOf(all, false, true);
    range.xMin = 0;
    range.xMax = std::max(1, quartiles.size() - 1);
    panel.setTitle(tr("SSR of the cluster per iteration"));
    panel.finish(range, tr("Iteration"), tr("SSR"));
}
