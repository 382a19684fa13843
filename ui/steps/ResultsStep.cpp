#include "ResultsStep.h"

#include "StepWidgets.h"
#include "project/ProjectModel.h"
#include "project/ResultStore.h"
#include "project/TableFiles.h"
#include "ui/ProjectDocument.h"
#include "ui/ProjectFolder.h"
#include "ui/Workbench.h"
#include "ui/messages/ProblemHtml.h"
#include "ui/results/ChartGrid.h"
#include "ui/results/ChartPanel.h"
#include "ui/results/ConvergenceView.h"
#include "ui/results/ObservationSimulationView.h"
#include "ui/results/ParameterPairsView.h"
#include "ui/results/ParameterRangeView.h"
#include "ui/results/ParameterView.h"
#include "ui/results/ResultExport.h"
#include "ui/results/SsrParameterView.h"
#include "ui/results/UncertaintyText.h"
#include "ui/results/VariableVariabilityView.h"
#include "ui/steps/RunStep.h"
#include "ui/steps/SimulationStep.h"

#include <QApplication>
#include <QChartView>
#include <QDir>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QTabWidget>
#include <QTableWidget>
#include <QTextEdit>
#include <QVBoxLayout>

#include <cmath>
#include <limits>

using QtCharts::QChartView;

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

// The tabs in the order of the refresh's tests of the current tab's title.
const char *const refreshOrder[] = {"Parameter Range", "SSR-Parameter", "Parameter-Parameter distribution",
                                    "Parameters", "Observation-Simulation"};

const ProjectModel &emptyModel()
{
    static const ProjectModel model;
    return model;
}

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
    m_views = {new ObservationSimulationView(this), new ParameterView(this),
               new ParameterRangeView(this),        new SsrParameterView(this),
               new ParameterPairsView(this),        new VariableVariabilityView(this)};
    m_convergence = new ConvergenceView(this);

    m_page = new QWidget;
    auto *layout = new QVBoxLayout(m_page);
    layout->addWidget(buildSelectionRow());
    layout->addWidget(buildGroupingRow());
    m_tabs = named(new QTabWidget(m_page), "tabWidget");
    const QStringList titles = tabTitles();
    for (int t = 0; t < titles.size(); ++t)
        m_tabs->addTab(m_views[t]->widget(), titles[t]);
    m_tabs->setCurrentIndex(0);
    layout->addWidget(m_tabs, 1);

    connect(m_iteration, qOverload<int>(&QSpinBox::valueChanged), this, &ResultsStep::refresh);
    connect(m_percentile, qOverload<int>(&QSpinBox::valueChanged), this, &ResultsStep::refresh);
    connect(m_clusters, qOverload<int>(&QSpinBox::valueChanged), this, &ResultsStep::refresh);
    connect(m_tabs, &QTabWidget::currentChanged, this, &ResultsStep::refresh);
    connectViews();
    refresh();
}

ResultsStep::~ResultsStep() = default;

QWidget *ResultsStep::buildSelectionRow()
{
    auto *row = new QWidget;
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    m_iteration = named(new QSpinBox(row), "spinBox_iterationNumber");
    m_iteration->setRange(0, 0);
    m_iteration->setMinimumWidth(80);
    m_percentile = named(new QSpinBox(row), "spinBox_percentile");
    m_percentile->setRange(0, 100);
    m_percentile->setValue(100);
    m_percentile->setSuffix(QStringLiteral(" %"));
    m_percentile->setToolTip(tr("Show the points whose SSR is not above this percentile of the iteration's "
                                "SSR values."));
    m_tolerance = named(new QLabel(tr("Display tolerence: Inf/NaN"), row), "label_displayTolerance");
    layout->addWidget(makeLabel(tr("Iteration:"), row, m_iteration));
    layout->addWidget(m_iteration);
    layout->addWidget(makeLabel(tr("SSR percentile:"), row, m_percentile));
    layout->addWidget(m_percentile);
    layout->addWidget(m_tolerance);
    layout->addStretch();
    auto *csv = makeButton("pushButton_savePlotAsCSV", tr("save plot as CSV"), row);
    auto *pdf = makeButton("pushButton_savePlotAsPDF", tr("save plot as PDF"), row);
    layout->addWidget(csv);
    layout->addWidget(pdf);
    connect(csv, &QPushButton::clicked, this, &ResultsStep::savePlotAsCsv);
    connect(pdf, &QPushButton::clicked, this, &ResultsStep::savePlotAsPdf);
    return row;
}

QWidget *ResultsStep::buildGroupingRow()
{
    auto *row = new QWidget;
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    m_clusters = named(new QSpinBox(row), "spinBox_numParameterClusters");
    m_clusters->setRange(1, 50);
    m_clusters->setValue(5);
    m_clusters->setToolTip(tr("The selected points are grouped by k-means in the search coordinates X; the "
                              "groups colour the Parameters and Parameter-Parameter views."));
    auto *find = makeButton("pushButton_findOptimalClustering", tr("find Optimal Clustering"), row);
    find->setToolTip(tr("Chooses from 1 to 10 groups: the number with the largest mean silhouette, if it "
                        "reaches 0.5; otherwise 1."));
    auto *save = makeButton("pushButton_saveTypicalParameters", tr("save Typical Parameters"), row);
    save->setToolTip(tr("One row per group: its size, best SSR, the best member's parameters and the "
                        "group's median."));
    m_clusteringNote = named(new QLabel(row), "label_clusteringNote");
    layout->addWidget(makeLabel(tr("Number of parameter clusters"), row, m_clusters));
    layout->addWidget(m_clusters);
    layout->addWidget(find);
    layout->addWidget(save);
    layout->addWidget(m_clusteringNote, 1);
    connect(find, &QPushButton::clicked, this, &ResultsStep::findOptimalClustering);
    connect(save, &QPushButton::clicked, this, &ResultsStep::saveTypicalParameters);
    return row;
}

void ResultsStep::connectViews()
{
    auto *observations = static_cast<ObservationSimulationView *>(m_views[0]);
    auto *pairs = static_cast<ParameterPairsView *>(m_views[4]);
    auto *variabilities = static_cast<VariableVariabilityView *>(m_views[5]);
    connect(observations, &ObservationSimulationView::optionsChanged, this, &ResultsStep::refresh);
    connect(pairs, &ParameterPairsView::optionsChanged, this, &ResultsStep::refresh);
    // Variable Variabilities is not among the refreshed tabs: it is drawn
    // when opened and when its own settings change.
    connect(variabilities, &VariableVariabilityView::optionsChanged, this, &ResultsStep::drawVariabilities);
    connect(m_tabs, &QTabWidget::currentChanged, this, [this] {
        if (m_tabs->currentWidget() == m_views[5]->widget())
            drawVariabilities();
    });
    connect(m_convergence, &ConvergenceView::saveCsvRequested, this, [this] {
        const QString path = askSavePath(m_page, QDir(projectFolder()).filePath("AMM_convergence.csv"));
        if (!path.isEmpty())
            writePlotCsv(path, m_convergence->table());
    });
    connect(m_convergence, &ConvergenceView::savePdfRequested, this, [this] {
        const QString path = askSavePath(m_page, QDir(projectFolder()).filePath("AMM_convergence.pdf"));
        if (!path.isEmpty())
            writeWidgetPdf(path, m_convergence->chart()->view(), tr("SSR of the cluster per iteration"));
    });
}

void ResultsStep::connectWorkbench()
{
    const Workbench &w = workbench();
    connect(w.document, &ProjectDocument::resultChanged, this,
            [this] { setResult(workbench().document->result()); });
    connect(w.document, &ProjectDocument::changed, this, [this] {
        m_frameStale = true;
        static_cast<ObservationSimulationView *>(m_views[0])->forgetCurves();
    });
    if (QPushButton *button = w.simulation->computeJacobianButton())
        connect(button, &QPushButton::clicked, this, &ResultsStep::computeJacobian);
    if (auto *runTabs = w.run->page()->findChild<QTabWidget *>(QStringLiteral("tabWidget_2")))
        runTabs->addTab(m_convergence->widget(), tr("Convergence"));
}

QTableWidget *ResultsStep::correlationTable() const
{
    return static_cast<ParameterPairsView *>(m_views[4])->correlationTable();
}

ResultView *ResultsStep::view(const QString &tabTitle) const
{
    const int index = tabTitles().indexOf(tabTitle);
    return index < 0 ? nullptr : m_views[index];
}

QChartView *ResultsStep::chartView(const QString &tabTitle) const
{
    ResultView *v = view(tabTitle);
    return v ? v->widget()->findChild<QChartView *>() : nullptr;
}

// Refresh

void ResultsStep::setResult(const compResult &result)
{
    m_result = result;
    m_orders.clear();
    m_frameStale = true;
    {
        const QSignalBlocker blocker(m_iteration);
        m_iteration->setRange(0, std::max(0, iterationCount() - 1));
        m_iteration->setValue(m_iteration->maximum());
    }
    m_convergence->draw(m_result);
    saveLastJacobian();
    refresh();
}

void ResultsStep::refresh()
{
    recomputeSelection();
    if (!m_selection.points.isEmpty())
        regroup();
    else
        m_grouping = Grouping();
    redrawCurrentView();
}

int ResultsStep::iterationCount() const
{
    return std::min(m_result.X.size(), m_result.SSR.size());
}

int ResultsStep::shownIteration() const
{
    const int count = iterationCount();
    return count == 0 ? -1 : std::min(m_iteration->value(), count - 1);
}

const SsrOrder &ResultsStep::orderOf(int iteration) const
{
    auto found = m_orders.find(iteration);
    if (found == m_orders.end())
        found = m_orders.insert(iteration, orderBySsr(m_result.SSR.value(iteration)));
    return found.value();
}

void ResultsStep::recomputeSelection()
{
    const int k = shownIteration();
    const QVector<double> ssr = m_result.SSR.value(k);
    m_selection = selectByPercentile(ssr, orderOf(k), m_percentile->value());
    showTolerance();
}

void ResultsStep::showTolerance()
{
    m_tolerance->setText(m_selection.hasTolerance
                                 ? tr("Display tolerence: ") + QString::number(m_selection.tolerance, 'g', 6)
                                 : tr("Display tolerence: Inf/NaN"));
}

void ResultsStep::regroup()
{
    const DoubleMatrix &X = m_result.X[shownIteration()];
    DoubleMatrix rows;
    rows.reserve(m_selection.points.size());
    for (int i : m_selection.points)
        rows << X.value(i);
    m_grouping = kMeans(rows, m_clusters->value());
}

void ResultsStep::redrawCurrentView()
{
    const QString current = m_tabs->tabText(m_tabs->currentIndex());
    for (const char *title : refreshOrder) {
        if (current != tr(title))
            continue;
        ResultViewState state = viewState(shownIteration(), m_selection);
        state.grouping = m_grouping;
        if (current == tr("Parameter Range"))
            attachUncertainty(state);
        view(current)->draw(state);
        return;
    }
}

void ResultsStep::drawVariabilities()
{
    // The record keeps the model solutions of its newest iteration only.
    const int newest = iterationCount() - 1;
    const PointSelection selection =
            selectByPercentile(m_result.SSR.value(newest), orderOf(newest), m_percentile->value());
    m_views[5]->draw(viewState(newest, selection));
}

const ResultFrame &ResultsStep::frame() const
{
    if (m_frameStale) {
        const ProjectDocument *document = workbench().document;
        m_frame = describeResult(m_result, document ? document->model() : emptyModel());
        m_frameStale = false;
    }
    return m_frame;
}

ResultViewState ResultsStep::viewState(int iteration, const PointSelection &selection) const
{
    ResultViewState state;
    state.result = &m_result;
    state.frame = &frame();
    state.iteration = iteration;
    state.percentile = m_percentile->value();
    const ProjectModel *model = workbench().document ? &workbench().document->model() : nullptr;
    if (model && model->isValid() && state.frame->modelFits &&
        state.frame->parameterNames == model->system.parameterNames)
        state.model = model;
    state.selection = selection;
    return state;
}

void ResultsStep::attachUncertainty(ResultViewState &state) const
{
    const int k = state.iteration, best = state.selection.best;
    if (k < 0 || best < 0)
        return;
    const QVector<double> x = m_result.X[k].value(best);
    JacobianOrigin origin = JacobianOrigin::None;
    DoubleMatrix jacobian;
    double ssr = kNaN;
    if (m_computed.iteration == k && m_computed.x == x) {
        origin = JacobianOrigin::FiniteDifferences;
        jacobian = m_computed.jacobian.jacobian;
        ssr = m_computed.jacobian.ssr;
    } else if (k == iterationCount() - 1 && !m_result.lastJacobian.isEmpty()) {
        origin = JacobianOrigin::LastStep;
        jacobian = m_result.lastJacobian;
        ssr = m_result.SSR[k].value(best, kNaN);
    }
    const ProjectModel &model = workbench().document ? workbench().document->model() : emptyModel();
    const bool modelFits = model.isValid() && state.frame->modelFits &&
                           state.frame->parameterNames == model.system.parameterNames &&
                           x.size() == model.searchVariableCount;
    if (origin != JacobianOrigin::None && !modelFits)
        origin = JacobianOrigin::ModelDoesNotFit;
    if (origin == JacobianOrigin::FiniteDifferences || origin == JacobianOrigin::LastStep)
        state.uncertainty = asymptoticUncertainty(
                jacobian, ssr, transformationJacobian(model.g, model.system.parameterNames, x));
    state.jacobianSource = uncertaintySourceText(origin, k, state.uncertainty.status);
}

// Grouping

void ResultsStep::findOptimalClustering()
{
    const int k = shownIteration();
    if (k < 0 || m_selection.points.isEmpty()) {
        m_clusteringNote->setText(tr("Nothing to group: no point is selected."));
        return;
    }
    DoubleMatrix rows;
    for (int i : m_selection.points)
        rows << m_result.X[k].value(i);
    const GroupCountChoice choice = chooseGroupCount(rows, 10);
    QStringList values;
    for (int g = 2; g <= choice.silhouettes.size(); ++g)
        if (!std::isnan(choice.silhouettes[g - 1]))
            values << QString("%1: %2").arg(g).arg(choice.silhouettes[g - 1], 0, 'f', 2);
    m_clusteringNote->setText(
            tr("Mean silhouette by number of groups (%1); chosen: %2 (the best, if it reaches %3; otherwise "
               "1).")
                    .arg(values.isEmpty() ? tr("too few distinct points") : values.join(", "))
                    .arg(choice.groups)
                    .arg(minimumSilhouette));
    if (m_clusters->value() != choice.groups)
        m_clusters->setValue(choice.groups);
}

PlotTable ResultsStep::typicalParameters() const
{
    PlotTable table;
    const int k = shownIteration();
    if (k < 0 || m_grouping.groupCount == 0)
        return table;
    DoubleMatrix values;
    QVector<double> ssr;
    for (int i : m_selection.points) {
        values << m_result.Parameter.value(k).value(i);
        ssr << m_result.SSR[k].value(i, kNaN);
    }
    const QStringList &names = frame().parameterNames;
    const QVector<GroupSummary> groups = summariseGroups(m_grouping, values, ssr);
    table.columnNames << "size"
                      << "best SSR"
                      << "best point";
    for (const QString &name : names)
        table.columnNames << "best " + name;
    for (const QString &name : names)
        table.columnNames << "median " + name;
    table.columns = DoubleMatrix(table.columnNames.size());
    for (int g = 0; g < groups.size(); ++g) {
        const GroupSummary &group = groups[g];
        table.rowLabels << "group " + QString::number(g + 1);
        table.columns[0] << group.size;
        table.columns[1] << group.bestSsr;
        table.columns[2] << (group.bestRow >= 0 ? m_selection.points[group.bestRow] : kNaN);
        for (int a = 0; a < names.size(); ++a) {
            table.columns[3 + a] << (group.bestRow >= 0 ? values[group.bestRow].value(a, kNaN) : kNaN);
            table.columns[3 + names.size() + a] << group.median.value(a, kNaN);
        }
    }
    return table;
}

void ResultsStep::saveTypicalParameters()
{
    const PlotTable table = typicalParameters();
    if (table.rowLabels.isEmpty()) {
        workbench().errorPane->setHtml(redBlockHtml({tr("Nothing to save: no point is selected.")}));
        return;
    }
    const QString proposed = QDir(projectFolder())
                                     .filePath(QString("AMM_typical_parameters_iteration%1_%2groups.csv")
                                                       .arg(shownIteration())
                                                       .arg(m_grouping.groupCount));
    const QString path = askSavePath(m_page, proposed);
    if (!path.isEmpty())
        writePlotCsv(path, table);
}

// Exports

QString ResultsStep::projectFolder() const
{
    return workbench().project ? workbench().project->folder() : QString();
}

QString ResultsStep::proposedFileName(const QString &stem, const QString &suffix) const
{
    return QDir(projectFolder())
            .filePath(QString("AMM_%1_iteration%2_percentile%3.%4")
                              .arg(stem)
                              .arg(shownIteration())
                              .arg(m_percentile->value())
                              .arg(suffix));
}

QString ResultsStep::currentPlotCsvText() const
{
    return plotCsvText(m_views[m_tabs->currentIndex()]->table());
}

void ResultsStep::savePlotAsCsv()
{
    const ResultView *current = m_views[m_tabs->currentIndex()];
    if (current->table().columns.isEmpty()) {
        workbench().errorPane->setHtml(redBlockHtml({tr("Nothing to save: the plot is empty.")}));
        return;
    }
    const QString path = askSavePath(m_page, proposedFileName(current->fileStem(), "csv"));
    if (!path.isEmpty())
        writePlotCsv(path, current->table());
}

void ResultsStep::savePlotAsPdf()
{
    const QString path =
            askSavePath(m_page, proposedFileName(m_views[m_tabs->currentIndex()]->fileStem(), "pdf"));
    if (!path.isEmpty() && !writeCurrentPlotPdf(path))
        workbench().errorPane->setHtml(redBlockHtml({tr("Could not write %1.").arg(path)}));
}

bool ResultsStep::writeCurrentPlotPdf(const QString &path) const
{
    const QString title = tr("%1, iteration %2, SSR percentile %3")
                                  .arg(m_tabs->tabText(m_tabs->currentIndex()))
                                  .arg(shownIteration())
                                  .arg(m_percentile->value());
    return writeWidgetPdf(path, m_tabs->currentWidget(), title);
}

// Jacobian

void ResultsStep::reportJacobianProblem(const QString &text) const
{
    workbench().errorPane->setHtml(redBlockHtml({text}));
}

void ResultsStep::computeJacobian()
{
    const int k = shownIteration(), best = m_selection.best;
    if (k < 0 || best < 0) {
        reportJacobianProblem(
                tr("There is no point to compute the Jacobian at: run the Ambrel method or open a "
                   "project with a result first."));
        return;
    }
    const ProjectModel &model = workbench().document->model();
    const QVector<double> x = m_result.X[k].value(best);
    if (!model.isValid() || !frame().modelFits || x.size() != model.searchVariableCount) {
        reportJacobianProblem(tr("The model of Steps 1 to 4 has problems or does not match the result: the "
                                 "Jacobian cannot be computed."));
        return;
    }
    QApplication::setOverrideCursor(Qt::WaitCursor);
    const ModelJacobian jacobian = modelJacobian(model, x);
    QApplication::restoreOverrideCursor();
    if (!jacobian.ok) {
        reportJacobianProblem(
                tr("The Jacobian could not be computed: the model evaluation failed near the best "
                   "point."));
        return;
    }
    m_computed = {k, x, jacobian};
    if (!projectFolder().isEmpty())
        writeDoubleMatrix(resultFilePath(projectFolder(), QString("jacobian_%1.csv").arg(k)),
                          jacobian.jacobian);
    workbench().errorPane->setHtml(
            noteHtml(tr("Jacobian computed at the best point of iteration %1: the standard "
                        "errors are in Step6, tab \"Parameter Range\".")
                             .arg(k)));
    refresh();
}

void ResultsStep::saveLastJacobian() const
{
    const int count = iterationCount();
    if (m_result.lastJacobian.isEmpty() || count == 0 || projectFolder().isEmpty())
        return;
    writeDoubleMatrix(resultFilePath(projectFolder(), QString("jacobian_temp_%1.csv").arg(count - 1)),
                      m_result.lastJacobian);
}
