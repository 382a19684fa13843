#pragma once

#include "WorkflowStep.h"

#include "project/compResult.h"

class QCheckBox;
class QFrame;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QSpinBox;
class QTabWidget;
class QTextEdit;
class QWidget;
class RunControl;

// Step5: the computation log, the algorithm settings, the run button and the
// progress bar. Starting, stopping and following a run go through the
// installed RunControl.
class RunStep : public WorkflowStep {
    Q_OBJECT
public:
    static constexpr const char *startButtonText = "Start Ambrel method computation";

    RunStep(const Workbench &workbench, QObject *parent);

    QWidget *page() const { return m_page; }
    QTextEdit *logPane() const { return m_log; }
    QProgressBar *progressBar() const { return m_progress; }
    QPushButton *runButton() const { return m_runButton; }

    // Settings.
    QLineEdit *relativeToleranceEdit() const { return m_relTol; }
    QSpinBox *stage1IterationsBox() const { return m_stage1Iterations; }
    QSpinBox *stage2IterationsBox() const { return m_stage2Iterations; }
    QCheckBox *stricterSamplingBox() const { return m_stricterSampling; }
    QLineEdit *initialLambdaEdit() const { return m_initialLambda; }
    QSpinBox *maxInitialSamplingBox() const { return m_maxInitialSampling; }
    QSpinBox *timeLimitBox() const { return m_timeLimit; }
    QSpinBox *weightedIterationsBox() const { return m_weightedIterations; }
    QTextEdit *weightsEditor() const { return m_weights; }
    QCheckBox *polishBox() const { return m_polish; }

    // The run wiring; without one, nothing runs and nothing is running. The
    // control is not owned.
    void setRunControl(RunControl *control) { m_control = control; }
    RunControl *runControl() const { return m_control; }

    void setModelEditable(bool enable) override;

    // The run button: an abort request while the engine runs, otherwise a
    // fresh run.
    void runButtonClicked();
    void startRun(bool restart);
    void requestAbort();

    // Shows or hides the weights; the weighted iterations are reset to 0
    // either way, so a hidden weight setting never takes effect.
    void toggleWeights();
    // The weighted iterations are part of Stage 1, so their number follows a
    // lowered Stage 1 count and cannot be raised above it.
    void stage1IterationsChanged(int count);
    void weightedIterationsChanged(int count);

    // Filled in by the run wiring.
    void computationCompleted();
    void computationResult(const compResult &result);

private:
    QWidget *buildLogTab();
    QWidget *buildSettingsTab();
    QFrame *buildWeightsFrame();

    RunControl *m_control = nullptr;
    QWidget *m_page = nullptr;
    QTabWidget *m_tabs = nullptr;
    QTextEdit *m_log = nullptr;
    QPushButton *m_runButton = nullptr;
    QProgressBar *m_progress = nullptr;
    QLineEdit *m_relTol = nullptr;
    QSpinBox *m_stage1Iterations = nullptr;
    QSpinBox *m_stage2Iterations = nullptr;
    QCheckBox *m_stricterSampling = nullptr;
    QLineEdit *m_initialLambda = nullptr;
    QSpinBox *m_maxInitialSampling = nullptr;
    QSpinBox *m_timeLimit = nullptr;
    QFrame *m_weightsFrame = nullptr;
    QSpinBox *m_weightedIterations = nullptr;
    QTextEdit *m_weights = nullptr;
    QCheckBox *m_polish = nullptr;
};
