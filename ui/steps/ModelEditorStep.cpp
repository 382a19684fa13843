#include "ModelEditorStep.h"

#include "StepWidgets.h"
#include "ui/ProjectDocument.h"
#include "ui/Workbench.h"
#include "ui/editor/OdeHighlighting.h"
#include "ui/messages/ProblemHtml.h"

#include <QClipboard>
#include <QComboBox>
#include <QDebug>
#include <QFontMetricsF>
#include <QGroupBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScopedValueRollback>
#include <QScrollBar>
#include <QSet>
#include <QTableWidget>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
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

// The colouring's "<br>" puts all lines into one paragraph, and a font with
// negative leading sets the lines of a paragraph closer than paragraphs.
// Every line gets at least the font's height, as the typed lines have, so the
// text does not shift when it is re-coloured or split by a new line.
void keepLineSpacing(QTextDocument *document)
{
    QTextBlockFormat format;
    format.setLineHeight(QFontMetricsF(document->defaultFont()).height(), QTextBlockFormat::MinimumHeight);
    // Not a step of the user's undo history.
    document->setUndoRedoEnabled(false);
    QTextCursor all(document);
    all.select(QTextCursor::Document);
    all.mergeBlockFormat(format);
    document->setUndoRedoEnabled(true);
}

// The label shows as many lines as the window gives it; the tool tip holds
// the whole list of a large model.
void showNames(QLabel *label, const QString &text)
{
    label->setText(text);
    label->setToolTip(QStringLiteral("<qt>") + text.toHtmlEscaped() + QStringLiteral("</qt>"));
    label->show();
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
    m_copyNames = named(new QComboBox(m_copyGroup), "comboBox_copyVPnames");
    m_copyNames->setMinimumContentsLength(20);
    m_variablesLabel = named(new QLabel(tr("Variables:"), m_copyGroup), "lab_variableNames");
    m_parametersLabel = named(new QLabel(tr("Parameters:"), m_copyGroup), "lab_parameterNames");
    for (QLabel *label : {m_variablesLabel, m_parametersLabel}) {
        // Names are shown as typed, never read as markup.
        label->setTextFormat(Qt::PlainText);
        label->setWordWrap(true);
    }
    layout->addWidget(m_copyNames);
    layout->addWidget(m_variablesLabel, 1);
    layout->addWidget(m_parametersLabel, 1);
    layout->addStretch(1);
    // Shown once a parse has given them names.
    m_variablesLabel->hide();
    m_parametersLabel->hide();
    connect(m_copyNames, QOverload<int>::of(&QComboBox::activated), this, &ModelEditorStep::copyName);
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
    // The program's own re-colouring changes the content but not the text.
    if (!m_settingText)
        m_odeTimer->start();
}

void ModelEditorStep::auxFunctionTextChanged()
{
    if (!m_settingText)
        m_auxTimer->start();
}

void ModelEditorStep::reparseOdeText()
{
    reparse();
}

void ModelEditorStep::reparseAuxFunctions()
{
    // The auxiliary functions are substituted into the ODE system, so either
    // text's change re-parses both.
    reparse();
}

void ModelEditorStep::reparse()
{
    m_odeTimer->stop();
    m_auxTimer->stop();
    qDebug() << "start parsing";
    const OdeSystemText system = parsedSystem();
    qDebug() << "finish parsing";
    refreshNames(system);
    recolourEditors(system);
    qDebug() << "finish settingText";
    emit reparsed();
}

OdeSystemText ModelEditorStep::parsedSystem() const
{
    // A copy: re-colouring edits the texts, after which the document builds
    // its model anew.
    return workbench().document->model().system;
}

void ModelEditorStep::refreshNames(const OdeSystemText &system)
{
    const QStringList &states = system.stateVariableNames;
    // The second list: what the auxiliary functions use besides the state
    // variables, so that a parameter of a function the ODE text does not use
    // (yet) is listed too.
    const QSet<QString> stateSet(states.begin(), states.end());
    QStringList auxiliaryParameters;
    for (const QString &name : system.auxiliaryParameterNames) {
        if (!stateSet.contains(name))
            auxiliaryParameters << name;
    }
    m_parameterNames = mergedNames(system.parameterNames, auxiliaryParameters);

    showNames(m_parametersLabel, tr("Parameters: ") + m_parameterNames.join(QLatin1Char(' ')));
    showNames(m_variablesLabel, tr("Variables: ") + states.join(QLatin1Char(' ')));
    fillNameBoxes(nameListEntries(states, m_parameterNames));
    showStructureJacobian(system);
    showErrors();
}

void ModelEditorStep::fillNameBoxes(const QStringList &entries)
{
    for (QComboBox *box : {m_copyNames, m_findName}) {
        const QString chosen = box->currentText();
        const QSignalBlocker blocker(box);
        box->clear();
        box->addItems(entries);
        box->setCurrentIndex(qMax(0, entries.indexOf(chosen)));
    }
}

void ModelEditorStep::copyName(int index)
{
    const QString name = m_copyNames->itemText(index);
    if (isNameEntry(name))
        QGuiApplication::clipboard()->setText(name);
}

void ModelEditorStep::showStructureJacobian(const OdeSystemText &system)
{
    const int n = system.numStateVariables();
    m_jacobian->clearContents();
    if (n > maxJacobianStates) {
        m_jacobian->setRowCount(0);
        m_jacobian->setColumnCount(0);
        m_jacobian->setToolTip(
                tr("The structure Jacobian is shown for at most %1 state variables.").arg(maxJacobianStates));
        return;
    }
    m_jacobian->setToolTip(tr("1: linear, 0: independent, -1: non-linear or not evaluated"));
    m_jacobian->setRowCount(n);
    m_jacobian->setColumnCount(n);
    m_jacobian->setHorizontalHeaderLabels(system.stateVariableNames);
    m_jacobian->setVerticalHeaderLabels(system.stateVariableNames);
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) {
            auto *item = new QTableWidgetItem(QString::number(system.dependencyMatrix[i][j]));
            item->setTextAlignment(Qt::AlignCenter);
            m_jacobian->setItem(i, j, item);
        }
    }
}

void ModelEditorStep::recolourEditors(const OdeSystemText &system)
{
    for (QTextEdit *editor : {m_odeEditor, m_auxEditor}) {
        const QString text = editor->toPlainText();
        if (text.size() > maxColouredLength)
            recolour(editor, text, false);
        else
            recolour(editor, highlightedModelHtml(text, system.stateVariableNames, m_parameterNames), true);
    }
}

void ModelEditorStep::recolour(QTextEdit *editor, const QString &content, bool richText)
{
    Colouring &shown = m_colourings[editor];
    const bool unchanged = shown.content == content && shown.revision == editor->document()->revision();
    // A long text that was never coloured holds no stale colours to clear.
    if (unchanged || (!richText && !shown.richText))
        return;
    setEditorContent(editor, content, richText);
    shown = {content, editor->document()->revision(), richText};
}

void ModelEditorStep::setEditorContent(QTextEdit *editor, const QString &content, bool richText)
{
    const QTextCursor cursor = editor->textCursor();
    const int anchor = cursor.anchor();
    const int position = cursor.position();
    QScrollBar *vertical = editor->verticalScrollBar();
    QScrollBar *horizontal = editor->horizontalScrollBar();
    const int top = vertical->value();
    const int left = horizontal->value();
    {
        const QScopedValueRollback<bool> guard(m_settingText, true);
        if (richText) {
            editor->setHtml(content);
            keepLineSpacing(editor->document());
        } else {
            editor->setPlainText(content);
        }
    }
    const int end = editor->document()->characterCount() - 1;
    QTextCursor restored(editor->document());
    restored.setPosition(qBound(0, anchor, end));
    restored.setPosition(qBound(0, position, end), QTextCursor::KeepAnchor);
    editor->setTextCursor(restored);
    // Typing goes on in the plain format, not in the colour of the name or
    // comment next to the cursor.
    if (!restored.hasSelection())
        editor->setCurrentCharFormat(QTextCharFormat());
    vertical->setValue(top);
    horizontal->setValue(left);
}

void ModelEditorStep::findText()
{
    const QString name = m_findName->currentText();
    if (isNameEntry(name))
        replaceOdeText(name, name, false);
}

void ModelEditorStep::replaceText()
{
    const QString name = m_findName->currentText();
    if (isNameEntry(name))
        replaceOdeText(name, m_replaceWith->text(), true);
}

void ModelEditorStep::replaceOdeText(const QString &findText, const QString &replacement, bool replaceMode)
{
    const QString before = m_odeEditor->toPlainText();
    const QString marked = markReplacements(before, findText, replacement);
    if (withoutMarks(marked) != before) {
        m_textsBeforeReplace << before;
        if (m_textsBeforeReplace.size() > maxUndoTexts)
            m_textsBeforeReplace.removeFirst();
    }
    if (marked.size() > maxColouredLength)
        setEditorContent(m_odeEditor, withoutMarks(marked), false);
    else
        setEditorContent(m_odeEditor, markedTextHtml(marked, replaceMode ? "red" : "blue"), true);
    // The marks stay until the next edit re-colours the text; the names
    // follow the new text at once.
    m_odeTimer->stop();
    m_auxTimer->stop();
    refreshNames(parsedSystem());
}

void ModelEditorStep::undoReplace()
{
    if (m_textsBeforeReplace.isEmpty())
        return;
    setEditorContent(m_odeEditor, m_textsBeforeReplace.takeLast(), false);
    reparse();
}

void ModelEditorStep::showErrors()
{
    const ProjectModel &model = workbench().document->model();
    QStringList messages;
    for (const Problem &problem : model.problems) {
        if (problem.source == ProblemSource::ParameterSpecification)
            messages << problem.text;
    }
    messages << model.system.errors << model.system.warnings;
    const QString html = redBlockHtml(messages);
    if (html.isEmpty())
        workbench().errorPane->clear();
    else
        workbench().errorPane->setHtml(html);
}
