#pragma once

#include "project/compResult.h"
#include "ui/Workbench.h"

#include <QMainWindow>

class QPoint;
class QTableWidgetItem;
class QToolBox;
class RunFlow;

// The workbench window: the error pane and the copy-variable group above a
// toolbox of the seven workflow steps, the menus and the run controls. The
// window only lays out the steps and forwards its slots, named after the
// object and signal or after the menu action, to the step that owns the
// behaviour (see Workbench).
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    static constexpr const char *versionText = "alpha 5.1.0";

    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

    const Workbench &workbench() const { return m_workbench; }
    // Idle (false) or computing (true): the enable rules of the actions.
    void setComputing(bool computing);
    // Loads the project in folder without asking for it.
    void openProject(const QString &folder);

public slots:
    void menu_open();
    void menu_save();
    void menu_run();
    void menu_rerun();
    void menu_abort();

    void menu_undoObservation();
    void menu_pasteObservationTime();
    void menu_pasteObservationVariable();
    void menu_pasteObservationValue();
    void menu_fillObservationVariable();
    void menu_log10Value();

    void menu_showHide_copyVariable();
    void menu_showHide_auxFunction();
    void menu_showHideStructJacobian();
    void menu_showHideWeights();

    void enable_model_related_UI(bool enable);
    void AMmethod_computation_completed();
    void update_computation_result(compResult result);
    void ShowContextMenu(const QPoint &position);

private slots:
    // Step1
    void on_textEdit_ODEExpression_textChanged();
    void on_textEdit_auxFunction_textChanged();
    void on_textEdit_ODEExpression_timer_done();
    void on_textEdit_auxFunction_timer_done();
    void on_pushButton_findODEText_clicked();
    void on_pushButton_ODEsReplace_clicked();
    void replace_ODEtext(const QString &findText, const QString &replacement, bool replaceMode);
    void on_pushButton_ODEs_undo_clicked();
    void putRedcolour();

    // Step2 and Step4
    void on_pushButton_raed_in_dose_events_clicked();
    void on_pushButton_6_clicked();
    void on_tableWidget_doseEvents_itemChanged(QTableWidgetItem *item);
    void on_tableWidget_observations_itemChanged(QTableWidgetItem *item);
    void on_pushButton_increaseObsRows_clicked();

    // Step3 and Step3-2
    void on_pushButton_4_clicked();
    void on_pushButton_makePara_clicked();
    void on_tableWidget_parametersSpec_currentItemChanged(QTableWidgetItem *current,
                                                          QTableWidgetItem *previous);
    void on_textEdit_paraDefinition_textChanged();
    void on_textEdit_paraDefInverse_textChanged();
    void on_pushButton_importInitCluster_clicked();
    void on_spinBox_numInitICluster_valueChanged(int value);

    // Step5
    void on_pushButton_runAMmethod_clicked();
    void on_spinBox_numTotIter_valueChanged(int value);
    void on_spinBox_numWeightIter_valueChanged(int value);

    // Step7
    void on_lineEdit_simulationTimePoints_editingFinished();
    void on_lineEdit_simulationVariable_editingFinished();
    void on_pushButton_computeSimulation_clicked();
    void on_checkBox_ode_simulation_sol_y_log_stateChanged(int state);
    void on_pushButton_increaseSimulationDose_clicked();
    void on_tableWidget_simulationDoseEvents_itemChanged(QTableWidgetItem *item);
    void on_tableWidget_simulationParameters_itemChanged(QTableWidgetItem *item);
    void on_pushButton_saveSimulationAsCSV_clicked();

private:
    void createSteps();
    QWidget *buildCentralWidget();
    QToolBox *buildToolBox();
    void connectWidgets();

    void closeEvent(QCloseEvent *event) override;

    Workbench m_workbench;
    RunFlow *m_runFlow = nullptr;
};
