#pragma once

#include "WorkflowStep.h"

class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTableWidget;
class QTextEdit;
class QTimer;
class QWidget;

// Step1: the ODE system and auxiliary-function editors, the structure
// Jacobian, find and replace in the ODE text, and the copy-variable group
// that the window shows above the toolbox. The editor assistance (re-parse,
// highlighting, name lists, find/replace) lives here.
class ModelEditorStep : public WorkflowStep {
    Q_OBJECT
public:
    // Delay between the last keystroke and the re-parse of an editor.
    static constexpr int reparseDelayMs = 1000;

    ModelEditorStep(const Workbench &workbench, QObject *parent);

    QWidget *page() const { return m_page; }
    // groupBox_copyVariable, placed above the toolbox by the window.
    QGroupBox *copyVariableGroup() const { return m_copyGroup; }
    QTextEdit *odeEditor() const { return m_odeEditor; }
    QTextEdit *auxFunctionEditor() const { return m_auxEditor; }
    QTableWidget *jacobianTable() const { return m_jacobian; }
    // Single-shot timers; their timeout re-parses the editor's text.
    QTimer *odeTimer() const { return m_odeTimer; }
    QTimer *auxFunctionTimer() const { return m_auxTimer; }

    void setModelEditable(bool enable) override;

    // View menu toggles: each widget is flipped on its own state.
    void toggleCopyVariableGroup();
    void toggleAuxFunction();
    void toggleStructureJacobian();

    // (Re)starts the editor's re-parse timer.
    void odeTextChanged();
    void auxFunctionTextChanged();

    // Editor assistance; filled in with the editor assistance.
    void reparseOdeText();
    void reparseAuxFunctions();
    void findText();
    void replaceText();
    void replaceOdeText(const QString &findText, const QString &replacement, bool replaceMode);
    void undoReplace();
    void showErrors();

private:
    QWidget *buildEditors();
    QWidget *buildFindReplace();
    void buildCopyVariableGroup();

    QWidget *m_page = nullptr;
    QGroupBox *m_copyGroup = nullptr;
    QTextEdit *m_odeEditor = nullptr;
    QTextEdit *m_auxEditor = nullptr;
    QLabel *m_auxLabel = nullptr;
    QTableWidget *m_jacobian = nullptr;
    QComboBox *m_findName = nullptr;
    QLineEdit *m_replaceWith = nullptr;
    QPushButton *m_findButton = nullptr;
    QPushButton *m_replaceButton = nullptr;
    QPushButton *m_undoButton = nullptr;
    QPushButton *m_highlightButton = nullptr;
    QTimer *m_odeTimer = nullptr;
    QTimer *m_auxTimer = nullptr;
};
