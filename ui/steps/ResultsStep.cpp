#include "ResultsStep.h"

#include "StepWidgets.h"

#include <QChartView>
#include <QHBoxLayout>
#include <QLabel>
#include <QSpinBox>
#include <QSplitter>
#include <QTabWidget>
#include <QTableWidget>
#include <QVBoxLayout>

using QtCharts::QChartView;

namespace {

// Object names of the chart views, in the order of the tabs.
const char *const chartNames[] = {"chartView_observationSimulation", "chartView_parameters",
                                  "chartView_parameterRange",        "chartView_SSR_parameter",
                                  "chartView_parameterParameter",    "chartView_variableVariabilities"};

} // namespace

QStringList ResultsStep::tabTitles()
{
    return {tr("Observation-Simulation"),
            tr("Parameters"),
            tr("Parameter Range"),
            tr("SSR-Parameter"),
            tr("Parameter-Parameter distribution"),
            tr("Variable Variabilities")};
}

ResultsStep::ResultsStep(const Workbench &workbench, QObject *parent)
    : WorkflowStep(workbench, parent)
{
    m_page = new QWidget;
    auto *layout = new QVBoxLayout(m_page);
    layout->addWidget(buildSelectionRow());
    m_tabs = named(new QTabWidget(m_page), "tabWidget");
    for (const QString &title : tabTitles())
        m_tabs->addTab(buildTab(title), title);
    m_tabs->setCurrentIndex(0);
    layout->addWidget(m_tabs, 1);

    connect(m_iteration, qOverload<int>(&QSpinBox::valueChanged), this, &ResultsStep::refresh);
    connect(m_percentile, qOverload<int>(&QSpinBox::valueChanged), this, &ResultsStep::refresh);
    connect(m_tabs, &QTabWidget::currentChanged, this, &ResultsStep::refresh);
}

QWidget *ResultsStep::buildSelectionRow()
{
    auto *row = new QWidget;
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    m_iteration = named(new QSpinBox(row), "spinBox_iterationNumber");
    m_iteration->setRange(0, 0);
    m_iteration->setMinimumWidth(80);
    // A percentile of 0 would select no position in the sorted SSR list.
    m_percentile = named(new QSpinBox(row), "spinBox_percentile");
    m_percentile->setRange(1, 100);
    m_percentile->setValue(100);
    m_percentile->setSuffix(QStringLiteral(" %"));
    m_tolerance = named(new QLabel(tr("Display tolerence: Inf/NaN"), row), "label_displayTolerance");
    layout->addWidget(makeLabel(tr("Iteration:"), row, m_iteration));
    layout->addWidget(m_iteration);
    layout->addWidget(makeLabel(tr("SSR percentile:"), row, m_percentile));
    layout->addWidget(m_percentile);
    layout->addWidget(m_tolerance);
    layout->addStretch();
    return row;
}

QWidget *ResultsStep::buildTab(const QString &title)
{
    const int index = tabTitles().indexOf(title);
    auto *view = named(new QChartView, chartNames[index]);
    view->setRenderHint(QPainter::Antialiasing);
    view->setMinimumHeight(220);
    if (title != tr("Parameter-Parameter distribution"))
        return view;

    // The sample correlation matrix of X stands beside the pairwise plot.
    auto *splitter = new QSplitter(Qt::Horizontal);
    splitter->addWidget(view);
    m_correlation = named(new QTableWidget(splitter), "tableWidget_X_corr");
    m_correlation->setEditTriggers(QAbstractItemView::NoEditTriggers);
    splitter->addWidget(m_correlation);
    splitter->setSizes({600, 400});
    return splitter;
}

QChartView *ResultsStep::chartView(const QString &tabTitle) const
{
    const int index = tabTitles().indexOf(tabTitle);
    return index < 0 ? nullptr : m_page->findChild<QChartView *>(QLatin1String(chartNames[index]));
}

void ResultsStep::setResult(const compResult &result)
{
    m_result = result;
    refresh();
}

void ResultsStep::refresh()
{
    // Filled in with the result views.
}
