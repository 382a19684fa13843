#include "MainWindow.h"

#include "MainWindowActions.h"
#include "ProjectDocument.h"
#include "ProjectFolder.h"
#include "run/RunFlow.h"
#include "steps/DoseEventsStep.h"
#include "steps/ModelEditorStep.h"
#include "steps/ObservationStep.h"
#include "steps/ParameterStep.h"
#include "steps/ResultsStep.h"
#include "steps/RunStep.h"
#include "steps/SimulationStep.h"
#include "widgets/QTableWidgetWithCopyPaste.h"

#include <QCheckBox>
#include <QGroupBox>
#include <QGuiApplication>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>
#include <QSpinBox>
#include <QSplitter>
#include <QStatusBar>
#include <QTextEdit>
#include <QTimer>
#include <QToolBox>
#include <QVBoxLayout>

namespace {

// Connects the signal of the window's widget with the given object name to a
// window slot, the way the form's slots are named after object and signal.
template<typename Sender, typename... Args, typename Slot>
void wire(MainWindow *window, const char *objectName, void (Sender::*signal)(Args...), Slot slot)
{
    Sender *sender = window->findChild<Sender *>(QLatin1String(objectName));
    if (!sender) {
        qWarning("MainWindow: no object named %s to connect", objectName);
        return;
    }
    QObject::connect(sender, signal, window, slot);
}

} // namespace

MainWindow::MainWindow(QWidget *parent)
    : QMainWindow(parent)
{
    qRegisterMetaType<compResult>("compResult");
    setWindowTitle(tr("Ambrel"));
    createSteps();
    setCentralWidget(buildCentralWidget());
    m_workbench.actions = new MainWindowActions(this);
    statusBar();
    connectWidgets();

    const QRect available = QGuiApplication::primaryScreen()->availableGeometry();
    resize(QSize(1280, 900).boundedTo(available.size()));
}

MainWindow::~MainWindow() = default;

void MainWindow::createSteps()
{
    m_workbench.errorPane = new QTextEdit;
    m_workbench.errorPane->setObjectName(QStringLiteral("textEdit_error"));
    m_workbench.errorPane->setReadOnly(true);
    m_workbench.modelEditor = new ModelEditorStep(m_workbench, this);
    m_workbench.doseEvents = new DoseEventsStep(m_workbench, this);
    m_workbench.parameters = new ParameterStep(m_workbench, this);
    m_workbench.observations = new ObservationStep(m_workbench, this);
    m_workbench.run = new RunStep(m_workbench, this);
    m_workbench.results = new ResultsStep(m_workbench, this);
    m_workbench.simulation = new SimulationStep(m_workbench, this);
    m_workbench.project = new ProjectFolder(m_workbench, this);
    m_workbench.document = new ProjectDocument(m_workbench, this);
    m_workbench.document->watchInputs();
    m_runFlow = new RunFlow(m_workbench, this);
    m_workbench.run->setRunControl(m_runFlow);
    m_workbench.results->connectWorkbench();
    m_workbench.simulation->watchDocument();
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    // A run is stopped and waited for here, not left to the teardown of the
    // window's children, so its thread never outlives the window.
    m_runFlow->stopAndWait(30000);
    QMainWindow::closeEvent(event);
}

QWidget *MainWindow::buildCentralWidget()
{
    // The messages and the name list stand above the steps; the splitter lets
    // the user give the error pane more room when a model has many problems.
    auto *top = new QWidget;
    auto *topLayout = new QVBoxLayout(top);
    topLayout->setContentsMargins(0, 0, 0, 0);
    topLayout->addWidget(m_workbench.errorPane, 1);
    topLayout->addWidget(m_workbench.modelEditor->copyVariableGroup());

    auto *splitter = new QSplitter(Qt::Vertical);
    splitter->addWidget(top);
    splitter->addWidget(buildToolBox());
    splitter->setStretchFactor(0, 0);
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({130, 770});
    splitter->setChildrenCollapsible(false);
    return splitter;
}

QToolBox *MainWindow::buildToolBox()
{
    auto *toolBox = new QToolBox;
    toolBox->setObjectName(QStringLiteral("toolBox"));
    const Workbench &w = m_workbench;
    toolBox->addItem(w.modelEditor->page(), tr("Step1: Define the model using a system of ODEs"));
    toolBox->addItem(w.doseEvents->page(), tr("Step2: Define dose events"));
    toolBox->addItem(w.parameters->specificationPage(),
                     tr("Step3: Define Parameter Domain of Interest and Theoretical Upper and Lower Bounds"));
    toolBox->addItem(w.parameters->transformationPage(),
                     tr("Step3-2 (Optional): Inspect and Edit parameter transformation"));
    toolBox->addItem(w.observations->page(), tr("Step4: Define observation events and input data"));
    toolBox->addItem(w.run->page(), tr("Step5: Run Ambrel method"));
    toolBox->addItem(w.results->page(), tr("Step6: Inspect Modelfit and Found Parameters"));
    toolBox->addItem(w.simulation->page(), tr("Step7: Simulate using the Found Parameters"));
    toolBox->setCurrentIndex(0);
    return toolBox;
}

void MainWindow::connectWidgets()
{
    MainWindow *w = this;
    wire(w, "textEdit_ODEExpression", &QTextEdit::textChanged,
         &MainWindow::on_textEdit_ODEExpression_textChanged);
    wire(w, "textEdit_auxFunction", &QTextEdit::textChanged,
         &MainWindow::on_textEdit_auxFunction_textChanged);
    wire(w, "textEdit_ODEExpression_timer", &QTimer::timeout,
         &MainWindow::on_textEdit_ODEExpression_timer_done);
    wire(w, "textEdit_auxFunction_timer", &QTimer::timeout, &MainWindow::on_textEdit_auxFunction_timer_done);
    wire(w, "pushButton_findODEText", &QPushButton::clicked, &MainWindow::on_pushButton_findODEText_clicked);
    wire(w, "pushButton_ODEsReplace", &QPushButton::clicked, &MainWindow::on_pushButton_ODEsReplace_clicked);
    wire(w, "pushButton_ODEs_undo", &QPushButton::clicked, &MainWindow::on_pushButton_ODEs_undo_clicked);

    wire(w, "pushButton_6", &QPushButton::clicked, &MainWindow::on_pushButton_6_clicked);
    wire(w, "tableWidget_doseEvents", &QTableWidget::itemChanged,
         &MainWindow::on_tableWidget_doseEvents_itemChanged);
    wire(w, "tableWidget_doseEvents", &QWidget::customContextMenuRequested, &MainWindow::ShowContextMenu);
    wire(w, "tableWidget_observations", &QTableWidget::itemChanged,
         &MainWindow::on_tableWidget_observations_itemChanged);
    wire(w, "pushButton_increaseObsRows", &QPushButton::clicked,
         &MainWindow::on_pushButton_increaseObsRows_clicked);

    wire(w, "pushButton_4", &QPushButton::clicked, &MainWindow::on_pushButton_4_clicked);
    wire(w, "tableWidget_parametersSpec", &QTableWidget::currentItemChanged,
         &MainWindow::on_tableWidget_parametersSpec_currentItemChanged);
    wire(w, "textEdit_paraDefinition", &QTextEdit::textChanged,
         &MainWindow::on_textEdit_paraDefinition_textChanged);
    wire(w, "textEdit_paraDefInverse", &QTextEdit::textChanged,
         &MainWindow::on_textEdit_paraDefInverse_textChanged);
    wire(w, "pushButton_importInitCluster", &QPushButton::clicked,
         &MainWindow::on_pushButton_importInitCluster_clicked);
    wire(w, "spinBox_numInitICluster", qOverload<int>(&QSpinBox::valueChanged),
         &MainWindow::on_spinBox_numInitICluster_valueChanged);

    wire(w, "pushButton_runAMmethod", &QPushButton::clicked, &MainWindow::on_pushButton_runAMmethod_clicked);
    wire(w, "spinBox_numTotIter", qOverload<int>(&QSpinBox::valueChanged),
         &MainWindow::on_spinBox_numTotIter_valueChanged);
    wire(w, "spinBox_numWeightIter", qOverload<int>(&QSpinBox::valueChanged),
         &MainWindow::on_spinBox_numWeightIter_valueChanged);

    wire(w, "lineEdit_simulationTimePoints", &QLineEdit::editingFinished,
         &MainWindow::on_lineEdit_simulationTimePoints_editingFinished);
    wire(w, "lineEdit_simulationVariable", &QLineEdit::editingFinished,
         &MainWindow::on_lineEdit_simulationVariable_editingFinished);
    wire(w, "pushButton_computeSimulation", &QPushButton::clicked,
         &MainWindow::on_pushButton_computeSimulation_clicked);
    wire(w, "checkBox_ode_simulation_sol_y_log", &QCheckBox::stateChanged,
         &MainWindow::on_checkBox_ode_simulation_sol_y_log_stateChanged);
    wire(w, "pushButton_increaseSimulationDose", &QPushButton::clicked,
         &MainWindow::on_pushButton_increaseSimulationDose_clicked);
    wire(w, "tableWidget_simulationDoseEvents", &QTableWidget::itemChanged,
         &MainWindow::on_tableWidget_simulationDoseEvents_itemChanged);
    wire(w, "tableWidget_simulationParameters", &QTableWidget::itemChanged,
         &MainWindow::on_tableWidget_simulationParameters_itemChanged);
    wire(w, "pushButton_saveSimulationAsCSV", &QPushButton::clicked,
         &MainWindow::on_pushButton_saveSimulationAsCSV_clicked);
}

void MainWindow::setComputing(bool computing)
{
    m_workbench.setComputing(computing);
}

void MainWindow::openProject(const QString &folder)
{
    m_workbench.project->openFolder(folder);
}

// File and Computation menus

void MainWindow::menu_open()
{
    m_workbench.project->open();
}

void MainWindow::menu_save()
{
    m_workbench.project->save();
}

void MainWindow::menu_run()
{
    m_workbench.run->startRun(false);
}

void MainWindow::menu_rerun()
{
    m_workbench.run->startRun(true);
}

void MainWindow::menu_abort()
{
    m_workbench.run->requestAbort();
}

// Observation menu

void MainWindow::menu_undoObservation()
{
    m_workbench.observations->undo();
}

void MainWindow::menu_pasteObservationTime()
{
    m_workbench.observations->pasteColumnFromClipboard(ObservationStep::TimeColumn);
}

void MainWindow::menu_pasteObservationVariable()
{
    m_workbench.observations->pasteColumnFromClipboard(ObservationStep::VariableColumn);
}

void MainWindow::menu_pasteObservationValue()
{
    m_workbench.observations->pasteColumnFromClipboard(ObservationStep::ValueColumn);
}

void MainWindow::menu_fillObservationVariable()
{
    m_workbench.observations->fillVariables();
}

void MainWindow::menu_log10Value()
{
    m_workbench.observations->log10Values();
}

// View menu

void MainWindow::menu_showHide_copyVariable()
{
    m_workbench.modelEditor->toggleCopyVariableGroup();
}

void MainWindow::menu_showHide_auxFunction()
{
    m_workbench.modelEditor->toggleAuxFunction();
}

void MainWindow::menu_showHideStructJacobian()
{
    m_workbench.modelEditor->toggleStructureJacobian();
}

void MainWindow::menu_showHideWeights()
{
    m_workbench.run->toggleWeights();
}

// Run

void MainWindow::enable_model_related_UI(bool enable)
{
    m_workbench.setModelEditable(enable);
}

void MainWindow::AMmethod_computation_completed()
{
    m_workbench.run->computationCompleted();
}

void MainWindow::update_computation_result(compResult result)
{
    m_workbench.run->computationResult(result);
}

void MainWindow::ShowContextMenu(const QPoint &position)
{
    m_workbench.doseEvents->showContextMenu(position);
}

// Step1

void MainWindow::on_textEdit_ODEExpression_textChanged()
{
    m_workbench.modelEditor->odeTextChanged();
}

void MainWindow::on_textEdit_auxFunction_textChanged()
{
    m_workbench.modelEditor->auxFunctionTextChanged();
}

void MainWindow::on_textEdit_ODEExpression_timer_done()
{
    m_workbench.modelEditor->reparseOdeText();
}

void MainWindow::on_textEdit_auxFunction_timer_done()
{
    m_workbench.modelEditor->reparseAuxFunctions();
}

void MainWindow::on_pushButton_findODEText_clicked()
{
    m_workbench.modelEditor->findText();
}

void MainWindow::on_pushButton_ODEsReplace_clicked()
{
    m_workbench.modelEditor->replaceText();
}

void MainWindow::replace_ODEtext(const QString &findText, const QString &replacement, bool replaceMode)
{
    m_workbench.modelEditor->replaceOdeText(findText, replacement, replaceMode);
}

void MainWindow::on_pushButton_ODEs_undo_clicked()
{
    m_workbench.modelEditor->undoReplace();
}

void MainWindow::putRedcolour()
{
    m_workbench.modelEditor->showErrors();
}

// Step2 and Step4

void MainWindow::on_pushButton_raed_in_dose_events_clicked()
{
    m_workbench.doseEvents->readDoseEvents();
}

void MainWindow::on_pushButton_6_clicked()
{
    m_workbench.doseEvents->addRows();
}

void MainWindow::on_tableWidget_doseEvents_itemChanged(QTableWidgetItem *item)
{
    m_workbench.doseEvents->validateCell(item);
}

void MainWindow::on_tableWidget_observations_itemChanged(QTableWidgetItem *item)
{
    m_workbench.observations->validateCell(item);
}

void MainWindow::on_pushButton_increaseObsRows_clicked()
{
    m_workbench.observations->addRows();
}

// Step3 and Step3-2

void MainWindow::on_pushButton_4_clicked()
{
    m_workbench.parameters->generateParameters();
}

void MainWindow::on_pushButton_makePara_clicked()
{
    m_workbench.parameters->makeTransformation();
}

void MainWindow::on_tableWidget_parametersSpec_currentItemChanged(QTableWidgetItem *current,
                                                                  QTableWidgetItem *previous)
{
    m_workbench.parameters->specificationItemChanged(current, previous);
}

void MainWindow::on_textEdit_paraDefinition_textChanged()
{
    m_workbench.parameters->definitionChanged();
}

void MainWindow::on_textEdit_paraDefInverse_textChanged()
{
    m_workbench.parameters->inverseChanged();
}

void MainWindow::on_pushButton_importInitCluster_clicked()
{
    m_workbench.parameters->importInitialCluster();
}

void MainWindow::on_spinBox_numInitICluster_valueChanged(int value)
{
    m_workbench.parameters->clusterSizeChanged(value);
}

// Step5

void MainWindow::on_pushButton_runAMmethod_clicked()
{
    m_workbench.run->runButtonClicked();
}

void MainWindow::on_spinBox_numTotIter_valueChanged(int value)
{
    m_workbench.run->stage1IterationsChanged(value);
}

void MainWindow::on_spinBox_numWeightIter_valueChanged(int value)
{
    m_workbench.run->weightedIterationsChanged(value);
}

// Step7

void MainWindow::on_lineEdit_simulationTimePoints_editingFinished()
{
    m_workbench.simulation->timePointsEdited();
}

void MainWindow::on_lineEdit_simulationVariable_editingFinished()
{
    m_workbench.simulation->variableEdited();
}

void MainWindow::on_pushButton_computeSimulation_clicked()
{
    m_workbench.simulation->computeSimulation();
}

void MainWindow::on_checkBox_ode_simulation_sol_y_log_stateChanged(int state)
{
    m_workbench.simulation->logScaleChanged(state);
}

void MainWindow::on_pushButton_increaseSimulationDose_clicked()
{
    m_workbench.simulation->addDoseRows();
}

void MainWindow::on_tableWidget_simulationDoseEvents_itemChanged(QTableWidgetItem *item)
{
    m_workbench.simulation->validateDoseCell(item);
}

void MainWindow::on_tableWidget_simulationParameters_itemChanged(QTableWidgetItem *item)
{
    m_workbench.simulation->validateParameterCell(item);
}

void MainWindow::on_pushButton_saveSimulationAsCSV_clicked()
{
    m_workbench.simulation->saveAsCsv();
}
