#pragma once

#include "WorkflowStep.h"

namespace QtCharts {
class QChartView;
}
class QCheckBox;
class QLineEdit;
class QPushButton;
class QTabWidget;
class QTableWidgetItem;
class QTableWidgetWithCopyPaste;
class QWidget;

// Step7: forward simulation with chosen parameter sets, doses and time points.
class SimulationStep : public WorkflowStep {
    Q_OBJECT
public:
    // Rows added by "increase dose rows" (and present at start).
    static constexpr int rowIncrement = 10;

    SimulationStep(const Workbench &workbench, QObject *parent);

    QWidget *page() const { return m_page; }
    QTabWidget *tabs() const { return m_tabs; }
    QTableWidgetWithCopyPaste *parameterTable() const { return m_parameters; }
    QTableWidgetWithCopyPaste *doseTable() const { return m_doses; }
    QLineEdit *variableEdit() const { return m_variable; }
    QLineEdit *timePointsEdit() const { return m_timePoints; }
    QCheckBox *logScaleBox() const { return m_logScale; }
    QPushButton *saveButton() const { return m_save; }
    QtCharts::QChartView *chartView() const { return m_chart; }
    // "Compute Jacobian" belongs to the result analyses, which connect it.
    QPushButton *computeJacobianButton() const { return m_computeJacobian; }

    void addDoseRows();

    // Filled in with the simulation.
    void timePointsEdited();
    void variableEdited();
    void computeSimulation();
    void logScaleChanged(int state);
    void validateDoseCell(QTableWidgetItem *item);
    void validateParameterCell(QTableWidgetItem *item);
    void saveAsCsv();

private:
    QWidget *buildParameterTab();
    QWidget *buildDoseTab();
    QWidget *buildResultTab();

    QWidget *m_page = nullptr;
    QTabWidget *m_tabs = nullptr;
    QTableWidgetWithCopyPaste *m_parameters = nullptr;
    QTableWidgetWithCopyPaste *m_doses = nullptr;
    QPushButton *m_addDoseRows = nullptr;
    QLineEdit *m_variable = nullptr;
    QLineEdit *m_timePoints = nullptr;
    QPushButton *m_compute = nullptr;
    QCheckBox *m_logScale = nullptr;
    QPushButton *m_save = nullptr;
    QtCharts::QChartView *m_chart = nullptr;
    QPushButton *m_computeJacobian = nullptr;
};
