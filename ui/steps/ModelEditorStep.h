#pragma once

#include "WorkflowStep.h"

#include <QHash>
#include <QStringList>

class OdeSystemText;
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
    // Larger systems leave the structure Jacobian empty: a table of n * n
    // cells would stall the window.
    static constexpr int maxJacobianStates = 200;
    // Longer texts (a pasted data file, a megabyte on one line) stay plain:
    // hundreds of thousands of coloured names would stall the window for
    // seconds.
    static constexpr int maxColouredLength = 200000;
    // How many find or replace steps undo can take back.
    static constexpr int maxUndoTexts = 20;

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

    // (Re)starts the editor's re-parse timer, unless the program itself
    // replaced the content.
    void odeTextChanged();
    void auxFunctionTextChanged();

    // Re-parse both texts and refresh the labels, the name lists, the
    // structure Jacobian and the message area, then re-colour both editors.
    // Either timer's timeout; "update Highlights" does it at once.
    void reparseOdeText();
    void reparseAuxFunctions();
    // Marks every occurrence of the name chosen in the find box in blue.
    void findText();
    // Replaces every occurrence of the chosen name by the replacement line's
    // text and marks the new text in red.
    void replaceText();
    void replaceOdeText(const QString &findText, const QString &replacement, bool replaceMode);
    // Restores the ODE text as it stood before the last find or replace that
    // changed it (find removes blanks); repeated, it steps further back.
    void undoReplace();
    // The message area: the parameter specification's messages, then the ODE
    // system's, in red; empty when there are none.
    void showErrors();

signals:
    // The texts were parsed again (by a timer, "update Highlights" or a load):
    // the names of the model may have changed.
    void reparsed();

private:
    QWidget *buildEditors();
    QWidget *buildFindReplace();
    void buildCopyVariableGroup();

    void reparse();
    OdeSystemText parsedSystem() const;
    // The parse's lists; everything but the editors' colours.
    void refreshNames(const OdeSystemText &system);
    void fillNameBoxes(const QStringList &entries);
    void showStructureJacobian(const OdeSystemText &system);
    void recolourEditors(const OdeSystemText &system);
    // Replaces an editor's content by rich or plain text without restarting
    // its re-parse timer, keeping the cursor, the selection and the scroll
    // position.
    void setEditorContent(QTextEdit *editor, const QString &content, bool richText);
    // Sets the coloured (or, for a long text, the plain) content unless the
    // editor shows exactly that already.
    void recolour(QTextEdit *editor, const QString &content, bool richText);
    void copyName(int index);

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
    QComboBox *m_copyNames = nullptr;
    QLabel *m_variablesLabel = nullptr;
    QLabel *m_parametersLabel = nullptr;
    QTimer *m_odeTimer = nullptr;
    QTimer *m_auxTimer = nullptr;

    // The system's parameters, then the other names the auxiliary functions
    // use (a function the ODE text does not use yet): the parameters label,
    // the name lists and the italics.
    QStringList m_parameterNames;
    // The colouring each editor shows and the document revision it was set
    // at, so that an unchanged editor is left alone (and keeps its undo
    // history) when the other one is re-parsed.
    struct Colouring {
        QString content;
        int revision = -1;
        bool richText = false;
    };
    QHash<const QTextEdit *, Colouring> m_colourings;
    // Set while the program itself replaces an editor's content.
    bool m_settingText = false;
    // The ODE text before each find or replace that changed it, newest last.
    QStringList m_textsBeforeReplace;
};
