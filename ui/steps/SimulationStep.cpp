#include "SimulationStep.h"

#include "CellValidation.h"
#include "StepWidgets.h"
#include "ui/ProjectDocument.h"
#include "ui/Workbench.h"
#include "ui/widgets/QTableWidgetWithCopyPaste.h"

#include <QChartView>
#include <QCheckBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTabWidget>
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

void SimulationStep::timePointsEdited()
{
    // Filled in with the simulation: parses the time points.
}

void SimulationStep::variableEdited()
{
    // Filled in with the simulation.
}

void SimulationStep::computeSimulation()
{
    // Filled in with the simulation: solves, plots, enables the CSV button.
}

void SimulationStep::logScaleChanged(int)
{
    // Filled in with the simulation: redraws with the chosen y axis.
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

void SimulationStep::validateParameterCell(QTableWidgetItem *)
{
    // Filled in with the simulation: checks and evaluates the parameter cell.
}

void SimulationStep::saveAsCsv()
{
    // Filled in with the simulation: the labelled-column CSV file.
}
