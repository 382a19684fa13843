#include "SimulationStep.h"

#include "CellValidation.h"
#include "RunControl.h"
#include "RunStep.h"
#include "StepWidgets.h"
#include "ui/ProjectDocument.h"
#include "ui/ProjectFolder.h"
#include "ui/Workbench.h"
#include "ui/messages/ProblemHtml.h"
#include "ui/simulation/SimulationChart.h"
#include "ui/simulation/SimulationMessages.h"
#include "ui/tables/TableWidgetFiles.h"
#include "ui/widgets/QTableWidgetWithCopyPaste.h"

#include "project/ProjectModel.h"

#include <QChartView>
#include <QCheckBox>
#include <QDir>
#include <QFileDialog>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QTextEdit>
#include <QVBoxLayout>

using QtCharts::QChartView;

SimulationStep::SimulationStep(const Workbench &workbench, QObject *parent)
    : WorkflowStep(workbench, parent)
{
    m_page = new QWidget;
    auto *layout = new QVBoxLayout(m_page);
    m_tabs = named(new QTabWidget(m_page), "tabWidget_3");
    m_tabs->addTab(buildParameterTab(), tr("Simulation Parameters"));
    m_tabs->addTab(buildDoseTab(), tr("Simulation Dose Events"));
    m_tabs->addTab(buildResultTab(), tr("Simulation Results"));
    m_tabs->setCurrentIndex(1);
    layout->addWidget(m_tabs, 1);

    // Beside the tabs, where it takes no room from the plot.
    m_computeJacobian = makeButton("pushButton_computeJacobian", tr("Compute Jacobian"), m_tabs);
    m_tabs->setCornerWidget(m_computeJacobian, Qt::TopRightCorner);

    connect(m_tabs, &QTabWidget::currentChanged, this, &SimulationStep::tabShown);
    connect(&m_watcher, &QFutureWatcherBase::finished, this, &SimulationStep::simulationDone);
    redraw(); // the empty axes, until there is a result
}

SimulationStep::~SimulationStep()
{
    // The tasks share their job and outlive the step safely; this only keeps
    // them from running on after the window is gone.
    m_watcher.cancel();
    m_watcher.waitForFinished();
}

void SimulationStep::watchDocument()
{
    connect(workbench().document, &ProjectDocument::resultChanged, this,
            &SimulationStep::documentResultChanged);
}

QWidget *SimulationStep::buildParameterTab()
{
    auto *tab = new QWidget;
    auto *layout = new QVBoxLayout(tab);
    // One row per parameter set, one column per model parameter.
    m_parameters = makeDataTable("tableWidget_simulationParameters", 0, {}, tab);
    layout->addWidget(makeLabel(tr("Parameters to use for the simulation"), tab, m_parameters));
    layout->addWidget(m_parameters, 1);
    return tab;
}

QWidget *SimulationStep::buildDoseTab()
{
    auto *tab = new QWidget;
    auto *layout = new QVBoxLayout(tab);
    m_doses = makeDataTable("tableWidget_simulationDoseEvents", rowIncrement,
                            {tr("Time"), tr("Compartment"), tr("Dosage"), tr("Duration (set 0 if bolus)"),
                             tr("Note (optional):")},
                            tab);
    m_addDoseRows = makeButton("pushButton_increaseSimulationDose", tr("increase dose rows"), tab);
    layout->addWidget(m_doses, 1);
    auto *row = new QHBoxLayout;
    row->addWidget(m_addDoseRows);
    row->addStretch();
    layout->addLayout(row);
    return tab;
}

QWidget *SimulationStep::buildResultTab()
{
    auto *tab = new QWidget;
    auto *grid = new QGridLayout(tab);
    m_variable = named(new QLineEdit(tab), "lineEdit_simulationVariable");
    m_timePoints = named(new QLineEdit(tab), "lineEdit_simulationTimePoints");
    grid->addWidget(
            makeLabel(tr("Simulation variable (any expression involving  time (t), ODE variables, and "
                         "parameters)"),
                      tab, m_variable),
            0, 0);
    grid->addWidget(m_variable, 0, 1);
    grid->addWidget(
            makeLabel(tr("Simulation time (e.g., 1,2,3,4,5   or   0:1:10 => 0,1,2,3,4,5,6,7,8,9,10):"), tab,
                      m_timePoints),
            1, 0);
    grid->addWidget(m_timePoints, 1, 1);

    m_compute = makeButton("pushButton_computeSimulation", tr("Compute simulation"), tab);
    m_logScale = named(new QCheckBox(tr("y-axis log-scale"), tab), "checkBox_ode_simulation_sol_y_log");
    m_save = makeButton("pushButton_saveSimulationAsCSV", tr("save SimulationResult as .csv"), tab);
    m_save->setEnabled(false);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_compute);
    buttons->addWidget(m_logScale);
    buttons->addStretch();
    buttons->addWidget(m_save);
    grid->addLayout(buttons, 2, 0, 1, 2);

    m_chart = named(new QChartView(tab), "widget_ODE_sol_plot_simulation");
    m_chart->setRenderHint(QPainter::Antialiasing);
    m_chart->setMinimumHeight(220);
    grid->addWidget(m_chart, 3, 0, 1, 2);
    grid->setRowStretch(3, 1);
    grid->setColumnStretch(1, 1);
    return tab;
}

void SimulationStep::addDoseRows()
{
    addTableRows(m_doses, rowIncrement);
}

namespace {

// Significant digits of the parameter values offered from a result: more than
// the tables' usual 6, so the simulation uses the fitted values.
constexpr int parameterDigits = 8;

bool blankText(const QString &text)
{
    return text.trimmed().isEmpty();
}

QStringList headerTexts(const QTableWidget *table)
{
    QStringList headers;
    for (int c = 0; c < table->columnCount(); ++c) {
        const QTableWidgetItem *item = table->horizontalHeaderItem(c);
        headers << (item ? item->text() : QString());
    }
    return headers;
}

bool tableIsBlank(const QTableWidget *table)
{
    for (int r = 0; r < table->rowCount(); ++r)
        for (int c = 0; c < table->columnCount(); ++c)
            if (const QTableWidgetItem *item = table->item(r, c); item && !blankText(item->text()))
                return false;
    return true;
}

} // namespace

// Parameter table

bool SimulationStep::runIsActive() const
{
    const RunControl *control = workbench().run->runControl();
    return control && control->isRunning();
}

void SimulationStep::documentResultChanged()
{
    // A run replaces the result after every iteration: refilling then would
    // overwrite the user's edits again and again, so the table follows the
    // result once the run has ended (and after a load).
    if (runIsActive()) {
        m_refillPending = true;
        return;
    }
    m_refillPending = false;
    fillParametersFromResult();
}

void SimulationStep::setModelEditable(bool enable)
{
    if (enable && m_refillPending && !runIsActive()) {
        m_refillPending = false;
        fillParametersFromResult();
    }
}

void SimulationStep::fillParametersFromResult()
{
    const ProjectDocument *document = workbench().document;
    const DoubleMatrix sets = bestParameterSets(document->result(), offeredParameterSets);
    const QStringList &names = document->model().system.parameterNames;
    if (sets.isEmpty() || sets.first().size() != names.size())
        return;
    const QSignalBlocker blocker(m_parameters);
    m_parameters->clearContents();
    m_parameters->setColumnCount(names.size());
    m_parameters->setRowCount(sets.size());
    m_parameters->setHorizontalHeaderLabels(names);
    for (int r = 0; r < sets.size(); ++r)
        for (int c = 0; c < names.size(); ++c)
            m_parameters->setItem(r, c,
                                  new QTableWidgetItem(QString::number(sets[r][c], 'g', parameterDigits)));
}

void SimulationStep::tabShown(int index)
{
    // Without a result the user types parameter sets: an untouched table gets
    // the model's parameter names as its columns.
    if (m_tabs->widget(index) != m_parameters->parentWidget() || !tableIsBlank(m_parameters))
        return;
    const QStringList &names = workbench().document->model().system.parameterNames;
    if (names.isEmpty() || headerTexts(m_parameters) == names)
        return;
    const QSignalBlocker blocker(m_parameters);
    m_parameters->setColumnCount(names.size());
    m_parameters->setHorizontalHeaderLabels(names);
    m_parameters->setRowCount(qMax(1, m_parameters->rowCount()));
}

void SimulationStep::validateParameterCell(QTableWidgetItem *item)
{
    if (!item)
        return;
    const QSignalBlocker blocker(m_parameters); // the colour change is an item change too
    const NumericCell cell = readSimulationParameterCell(item->text());
    const bool valid = blankText(item->text()) || cell.valid();
    if (valid)
        item->setData(Qt::ForegroundRole, QVariant());
    else
        item->setForeground(Qt::red);

    // The pane lists every filled cell that cannot be evaluated; blank cells
    // are only reported by a computation (a row may still be being typed).
    QVector<CellPosition> invalid;
    for (int r = 0; r < m_parameters->rowCount(); ++r)
        for (int c = 0; c < m_parameters->columnCount(); ++c)
            if (const QTableWidgetItem *other = m_parameters->item(r, c);
                other && !blankText(other->text()) && !readSimulationParameterCell(other->text()).valid())
                invalid.append({r, c});
    if (!invalid.isEmpty()) {
        showErrors({parameterTableErrors(invalid)});
        m_paneShowsParameterErrors = true;
        return;
    }
    if (m_paneShowsParameterErrors)
        showErrors({});
    m_paneShowsParameterErrors = false;
    if (cell.isExpression)
        workbench().errorPane->setHtml(noteHtml(cell.note.toHtmlEscaped()));
}

QString SimulationStep::parameterTableErrors(const QVector<CellPosition> &cells) const
{
    return parameterTableErrorsHtml(cells, headerTexts(m_parameters), tableToStringMatrix(m_parameters));
}

// Time points and variable

void SimulationStep::timePointsEdited()
{
    bool tooMany = false;
    const QString text = m_timePoints->text();
    m_timePointList = parseSimulationTimePoints(text, &tooMany);
    if (m_timePointList.isEmpty() && !blankText(text))
        showErrors({timePointsErrorHtml(text, tooMany)});
}

void SimulationStep::variableEdited()
{
    // Reports an expression the model cannot read at once, when there is a
    // model to read it against.
    const ProjectModel &model = workbench().document->model();
    if (blankText(m_variable->text()) || model.system.stateVariableNames.isEmpty() ||
        !model.system.errors.isEmpty())
        return;
    QStringList errors;
    if (!checkExpression(model, m_variable->text(), errors))
        showErrors(errors);
}

bool SimulationStep::checkExpression(const ProjectModel &model, const QString &expression,
                                     QStringList &errors)
{
    if (blankText(expression)) {
        errors << missingExpressionHtml(model.system.stateVariableNames);
        return false;
    }
    ExpressionParser parser(expression);
    parser.parse(model.system.variableNames());
    if (parser.errorMessages().isEmpty())
        return true;
    // The simulation's own report of the expression, before anything is solved.
    errors << problemsHtml(simulate(model.system, {}, {}, {}, expression, false, nullptr).problems);
    return false;
}

// Computation

void SimulationStep::computeSimulation()
{
    if (isComputing())
        return;
    m_result = SimulationOutcome();
    m_observed.clear();
    m_save->setEnabled(false);

    SimulationJob job;
    QStringList errors;
    if (!prepareJob(job, errors)) {
        showErrors(errors);
        redraw();
        emit simulationFinished();
        return;
    }
    showErrors({});
    m_resultExpression = job.expression;
    const ProjectModel &model = workbench().document->model();
    const StringMatrix observationCells = tableStringMatrix(workbench().document->inputs().observations);
    m_observed =
            observedPointsOf(job.expression, observationCells,
                             readObservationTable(observationCells, model.system, model.referenceParameters));
    startJob(job);
}

bool SimulationStep::prepareJob(SimulationJob &job, QStringList &errors)
{
    const ProjectModel &model = workbench().document->model();
    if (!model.system.errors.isEmpty()) {
        errors << problemsHtml(problemsFrom(ProblemSource::OdeSystem, model.system.errors));
        return false;
    }
    if (model.system.stateVariableNames.isEmpty()) {
        errors << noOdeSystemHtml();
        return false;
    }
    bool tooMany = false;
    m_timePointList = parseSimulationTimePoints(m_timePoints->text(), &tooMany);
    bool ok = !m_timePointList.isEmpty();
    if (!ok)
        errors << timePointsErrorHtml(m_timePoints->text(), tooMany);
    ok = readParameterSets(model, job, errors) && ok;
    ok = ok && readDoses(model, job, errors);
    job.expression = m_variable->text();
    ok = checkExpression(model, job.expression, errors) && ok;
    job.system = model.system;
    job.times = m_timePointList;
    return ok;
}

bool SimulationStep::readParameterSets(const ProjectModel &model, SimulationJob &job, QStringList &errors)
{
    const QStringList &names = model.system.parameterNames;
    const SimulationParameterSets read = readSimulationParameterSets(
            tableStringMatrix(tableCells(m_parameters)), headerTexts(m_parameters), names);
    job.parameterSets = read.sets;
    m_resultRows.clear();
    for (int row : read.rowOfSet)
        m_resultRows << row + 1;
    if (names.isEmpty() && job.parameterSets.isEmpty()) { // a model without parameters: one empty set
        job.parameterSets << QVector<double>();
        m_resultRows << 1;
    }

    if (!read.missingParameters.isEmpty())
        errors << missingParameterColumnsHtml(read.missingParameters, names);
    if (!read.invalidCells.isEmpty())
        errors << parameterTableErrors(read.invalidCells);
    if (read.missingParameters.isEmpty() && read.invalidCells.isEmpty() && job.parameterSets.isEmpty())
        errors << noParameterSetHtml();
    return read.missingParameters.isEmpty() && read.invalidCells.isEmpty() && !job.parameterSets.isEmpty();
}

bool SimulationStep::readDoses(const ProjectModel &model, SimulationJob &job, QStringList &errors)
{
    // Expression cells are read with the first set; the model evaluation
    // re-evaluates them for every set.
    const DoseTableResult doses = readDoseTable(tableStringMatrix(tableCells(m_doses)), DoseTable::Simulation,
                                                model.system, job.parameterSets.first());
    if (!doses.problems.isEmpty()) {
        errors << problemsHtml(doses.problems);
        return false;
    }
    job.doses = doses.events;
    return true;
}

void SimulationStep::startJob(const SimulationJob &job)
{
    auto shared = std::make_shared<const SimulationJob>(job);
    if (job.parameterSets.size() <= synchronousSetLimit) {
        finishSimulation(*shared, simulateAll(*shared));
        return;
    }
    m_runningJob = shared;
    setComputingLook(true);
    m_watcher.setFuture(startSimulation(shared));
}

void SimulationStep::simulationDone()
{
    const std::shared_ptr<const SimulationJob> job = std::move(m_runningJob);
    m_runningJob.reset();
    setComputingLook(false);
    if (job && !m_watcher.isCanceled())
        finishSimulation(*job, m_watcher.future().results().toVector());
}

void SimulationStep::finishSimulation(const SimulationJob &job, const QVector<SimulationResult> &results)
{
    m_result = collectSimulation(job, results);
    QStringList messages;
    if (!m_result.problems.isEmpty())
        messages << problemsHtml(m_result.problems);
    if (job.doses.isEmpty()) // easy to miss: this table is not the model's dose table
        messages << noteHtml(
                tr("No dose events in the simulation dose table (tab \"Simulation Dose Events\"): the "
                   "simulation ran without doses."));
    if (!messages.isEmpty())
        showErrors(messages);
    redraw();
    m_save->setEnabled(m_result.hasData());
    emit simulationFinished();
}

void SimulationStep::setComputingLook(bool computing)
{
    m_compute->setEnabled(!computing);
    m_compute->setText(computing ? tr("Computing...") : tr("Compute simulation"));
}

// Chart and file

void SimulationStep::logScaleChanged(int)
{
    redraw();
}

void SimulationStep::redraw()
{
    SimulationPlot plot;
    if (m_result.hasData()) {
        plot.times = m_result.times;
        plot.values = m_result.values;
        for (int row : qAsConst(m_resultRows))
            plot.lineNames << tr("row %1").arg(row);
        plot.valueTitle = m_resultExpression;
        plot.observed = m_observed;
        plot.observedName = tr("observed");
    }
    drawSimulationChart(m_chart->chart(), plot, m_logScale->isChecked());
}

void SimulationStep::saveAsCsv()
{
    if (!m_result.hasData())
        return;
    // The variable is part of the proposed name; a "/" in it (Ac/V) would
    // make the name a path into a folder that does not exist.
    QString name =
            QStringLiteral("AMM_") + m_variable->text() + QStringLiteral("_compartment_simulation_plot.csv");
    name.replace(QLatin1Char('/'), QLatin1Char('_')).replace(QLatin1Char('\\'), QLatin1Char('_'));
    const QString folder = workbench().project->folder();
    const QString path = QFileDialog::getSaveFileName(m_page, tr("Save .csv file"),
                                                      folder.isEmpty() ? name : QDir(folder).filePath(name),
                                                      tr("csv file (*.csv);;All Files (*)"));
    if (!path.isEmpty())
        writeSimulationResult(path, m_result.times, m_result.values);
}

void SimulationStep::showErrors(const QStringList &fragments)
{
    workbench().errorPane->setHtml(fragments.join(QLatin1String("<br>")));
}

void SimulationStep::validateDoseCell(QTableWidgetItem *item)
{
    // Checked as the model's dose table, but with the simulation table's own
    // name in its Duration message.
    TableValidator::of(m_doses, int(DoseColumn::Note), workbench().errorPane,
                       [this](const StringMatrix &cells, int row, int column) {
                           return checkDoseCells(workbench().document->model(), DoseTable::Simulation, cells,
                                                 row, column);
                       })
            ->cellEdited(item);
}
