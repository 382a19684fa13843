#include "ModelEditorStep.h"

#include "StepWidgets.h"

#include <QComboBox>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QTextEdit>
#include <QTimer>
#include <QVBoxLayout>

namespace {

QTimer *makeReparseTimer(const char *objectName, QObject *parent)
{
    auto *timer = named(new QTimer(parent), objectName);
    timer->setSingleShot(true);
    timer->setInterval(ModelEditorStep::reparseDelayMs);
    return timer;
}

} // namespace

ModelEditorStep::ModelEditorStep(const Workbench &workbench, QObject *parent)
    : WorkflowStep(workbench, parent)
{
    m_page = new QWidget;
    auto *layout = new QVBoxLayout(m_page);
    layout->addWidget(buildEditors(), 1);
    layout->addWidget(buildFindReplace());
    buildCopyVariableGroup();

    m_odeTimer = makeReparseTimer("textEdit_ODEExpression_timer", this);
    m_auxTimer = makeReparseTimer("textEdit_auxFunction_timer", this);
    // "update Highlights" re-parses at once instead of waiting for the timer.
    connect(m_highlightButton, &QPushButton::clicked, this, &ModelEditorStep::reparseOdeText);

    m_auxEditor->hide();
    m_auxLabel->hide();
    m_jacobian->hide();
}

QWidget *ModelEditorStep::buildEditors()
{
    // Box layouts skip hidden widgets, so the ODE editor takes all the room
    // the hidden auxiliary functions and structure Jacobian leave.
    auto *editors = new QWidget;
    m_odeEditor = makeFormulaEditor("textEdit_ODEExpression", editors);
    m_odeEditor->setMinimumHeight(160);
    m_auxEditor = makeFormulaEditor("textEdit_auxFunction", editors);
    m_auxLabel = named(makeLabel(tr("Auxiliary functions"), editors, m_auxEditor), "label_auxFunc");
    auto *aux = new QVBoxLayout;
    aux->addWidget(m_auxLabel);
    aux->addWidget(m_auxEditor, 1);
    // A stretch factor would keep the hidden auxiliary column's share, so
    // that column keeps a fixed width and the ODE editor takes the rest.
    m_auxEditor->setMinimumWidth(400);
    auto *texts = new QHBoxLayout;
    texts->addWidget(m_odeEditor, 1);
    texts->addLayout(aux);

    // The structure Jacobian is derived from the ODE text and only shown.
    m_jacobian = named(new QTableWidget(editors), "tableWidget_jacobian");
    m_jacobian->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_jacobian->horizontalHeader()->setDefaultSectionSize(60);
    m_jacobian->setMinimumHeight(120);

    auto *layout = new QVBoxLayout(editors);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(texts, 3);
    layout->addWidget(m_jacobian, 2);
    return editors;
}

QWidget *ModelEditorStep::buildFindReplace()
{
    auto *group = new QWidget;
    auto *row = new QHBoxLayout(group);
    row->setContentsMargins(0, 0, 0, 0);
    m_findName = named(new QComboBox(group), "comboBox_ODE_text_replace");
    m_findName->setMinimumContentsLength(16);
    m_findButton = makeButton("pushButton_findODEText", tr("Find"), group);
    m_replaceWith = named(new QLineEdit(group), "lineEdit_ODEs_replace_to");
    m_replaceButton = makeButton("pushButton_ODEsReplace", tr("Replace"), group);
    m_undoButton = makeButton("pushButton_ODEs_undo", tr("undo"), group);
    m_highlightButton = makeButton("pushButton", tr("update Highlights"), group);
    row->addWidget(m_findName);
    row->addWidget(m_findButton);
    row->addWidget(m_replaceWith, 1);
    row->addWidget(m_replaceButton);
    row->addWidget(m_undoButton);
    row->addStretch();
    row->addWidget(m_highlightButton);
    return group;
}

void ModelEditorStep::buildCopyVariableGroup()
{
    m_copyGroup =
            named(new QGroupBox(tr("Copy variable and parameter name (by selecting the following drop-down "
                                   "menu you can copy variable and parameter names)")),
                  "groupBox_copyVariable");
    auto *layout = new QHBoxLayout(m_copyGroup);
    auto *names = named(new QComboBox(m_copyGroup), "comboBox_copyVPnames");
    names->setMinimumContentsLength(20);
    auto *variables = named(new QLabel(tr("Variables:"), m_copyGroup), "lab_variableNames");
    auto *parameters = named(new QLabel(tr("Parameters:"), m_copyGroup), "lab_parameterNames");
    variables->setWordWrap(true);
    parameters->setWordWrap(true);
    layout->addWidget(names);
    layout->addWidget(variables, 1);
    layout->addWidget(parameters, 1);
    layout->addStretch(1);
    variables->hide();
    parameters->hide();
}

void ModelEditorStep::setModelEditable(bool enable)
{
    const QVector<QWidget *> switched{m_findName, m_replaceWith, m_highlightButton, m_replaceButton,
                                      m_undoButton};
    for (QWidget *widget : switched)
        widget->setEnabled(enable);
    m_odeEditor->setReadOnly(!enable);
}

void ModelEditorStep::toggleCopyVariableGroup()
{
    toggleVisible(m_copyGroup);
}

void ModelEditorStep::toggleAuxFunction()
{
    toggleVisible(m_auxEditor);
    toggleVisible(m_auxLabel);
}

void ModelEditorStep::toggleStructureJacobian()
{
    toggleVisible(m_jacobian);
}

void ModelEditorStep::odeTextChanged()
{
    m_odeTimer->start();
}

void ModelEditorStep::auxFunctionTextChanged()
{
    m_auxTimer->start();
}

void ModelEditorStep::reparseOdeText()
{
    // Filled in with the editor assistance: parse, labels, highlighting, name lists.
}

void ModelEditorStep::reparseAuxFunctions()
{
    // Filled in with the editor assistance.
}

void ModelEditorStep::findText()
{
    // Filled in with the editor assistance.
}

void ModelEditorStep::replaceText()
{
    // Filled in with the editor assistance.
}

void ModelEditorStep::replaceOdeText(const QString &, const QString &, bool)
{
    // Filled in with the editor assistance.
}

void ModelEditorStep::undoReplace()
{
    // Filled in with the editor assistance.
}

void ModelEditorStep::showErrors()
{
    // Filled in with the editor assistance: the error lists in red in the error pane.
}
