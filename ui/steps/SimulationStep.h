#pragma once

#include "WorkflowStep.h"

#include "project/SimulationTables.h"
#include "ui/simulation/SimulationRun.h"

#include <QFutureWatcher>
#include <QStringList>

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
struct ProjectModel;

// Step7: forward simulation with chosen parameter sets, doses and time points.
class SimulationStep : public WorkflowStep {
    Q_OBJECT
public:
    // Rows added by "increase dose rows" (and present at start).
    static constexpr int rowIncrement = 10;
    // Parameter sets offered from a result: its best points with a finite SSR.
    static constexpr int offeredParameterSets = 10;
    // Up to this many parameter sets are solved at once on the GUI thread;
    // more are solved on the thread pool while the window stays responsive.
    static constexpr int synchronousSetLimit = 4;

    SimulationStep(const Workbench &workbench, QObject *parent);
    ~SimulationStep() override;

    // Follows the document's result; called once the document exists.
    void watchDocument();

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

    // The stored time points (set when the time text is edited) and the
    // result of the last simulation.
    const QVector<double> &timePoints() const { return m_timePointList; }
    const SimulationOutcome &result() const { return m_result; }
    // The 1-based parameter table row of each set of the result.
    const QVector<int> &resultRows() const { return m_resultRows; }
    bool isComputing() const { return m_runningJob != nullptr; }

    // Replaces the parameter table with the current result's best points, one
    // row per point, one column per parameter.
    void fillParametersFromResult();
    // A refill that waited for the end of a run happens here.
    void setModelEditable(bool enable) override;

    // The tab's slots. Time points and the variable are checked when their
    // editing is finished, parameter cells when they change.
    void timePointsEdited();
    void variableEdited();
    void computeSimulation();
    void logScaleChanged(int state);
    void validateParameterCell(QTableWidgetItem *item);
    void saveAsCsv();
    // Filled in with the per-cell validation of the simulation doses.
    void validateDoseCell(QTableWidgetItem *item);

signals:
    // A simulation ended, with or without a result (also one refused at once).
    void simulationFinished();

private:
    QWidget *buildParameterTab();
    QWidget *buildDoseTab();
    QWidget *buildResultTab();

    void documentResultChanged();
    void tabShown(int index);
    bool runIsActive() const;
    bool prepareJob(SimulationJob &job, QStringList &errors);
    bool readParameterSets(const ProjectModel &model, SimulationJob &job, QStringList &errors);
    bool readDoses(const ProjectModel &model, SimulationJob &job, QStringList &errors);
    bool checkExpression(const ProjectModel &model, const QString &expression, QStringList &errors);
    void startJob(const SimulationJob &job);
    void simulationDone();
    void finishSimulation(const SimulationJob &job, const QVector<SimulationResult> &results);
    void setComputingLook(bool computing);
    void redraw();
    QString parameterTableErrors(const QVector<CellPosition> &cells) const;
    void showErrors(const QStringList &fragments);

    QVector<double> m_timePointList;
    SimulationOutcome m_result;
    QVector<int> m_resultRows;
    QString m_resultExpression;
    QVector<ObservedPoint> m_observed;
    std::shared_ptr<const SimulationJob> m_runningJob;
    QFutureWatcher<SimulationResult> m_watcher;
    bool m_refillPending = false;
    bool m_paneShowsParameterErrors = false;

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
