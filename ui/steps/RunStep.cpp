#include "RunStep.h"

#include "RunControl.h"
#include "StepWidgets.h"

#include <QCheckBox>
#include <QFontDatabase>
#include <QFormLayout>
#include <QFrame>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSpinBox>
#include <QTabWidget>
#include <QTextEdit>
#include <QVBoxLayout>

namespace {

// The settings' fields share one width, so they line up in a column.
constexpr int settingWidth = 130;

QSpinBox *makeSpinBox(const char *objectName, int minimum, int maximum, int value, QWidget *parent)
{
    auto *box = named(new QSpinBox(parent), objectName);
    box->setRange(minimum, maximum);
    box->setValue(value);
    box->setMinimumWidth(settingWidth);
    return box;
}

QLineEdit *makeNumberEdit(const char *objectName, const QString &text, QWidget *parent)
{
    auto *edit = named(new QLineEdit(text, parent), objectName);
    edit->setFixedWidth(settingWidth);
    return edit;
}

} // namespace

RunStep::RunStep(const Workbench &workbench, QObject *parent)
    : WorkflowStep(workbench, parent)
{
    m_page = new QWidget;
    auto *layout = new QVBoxLayout(m_page);
    m_tabs = named(new QTabWidget(m_page), "tabWidget_2");
    m_tabs->addTab(buildLogTab(), tr("Computation Log"));
    m_tabs->addTab(buildSettingsTab(), tr("Algorithm Setting"));
    m_tabs->setCurrentIndex(0);
    layout->addWidget(m_tabs, 1);

    m_runButton = makeButton("pushButton_runAMmethod", tr(startButtonText), m_page);
    m_progress = named(new QProgressBar(m_page), "progressBar_AM");
    m_progress->setValue(0);
    auto *runRow = new QHBoxLayout;
    runRow->addWidget(m_runButton);
    runRow->addWidget(m_progress, 1);
    layout->addLayout(runRow);

    // The settings builder gives the initial lambda its default and the
    // constructor sets it once more: this is the value a new window starts with.
    m_initialLambda->setText(QStringLiteral("1.00"));
}

QWidget *RunStep::buildLogTab()
{
    auto *tab = new QWidget;
    auto *layout = new QVBoxLayout(tab);
    m_log = named(new QTextEdit(tab), "textEdi_compLog");
    m_log->setReadOnly(true);
    m_log->setLineWrapMode(QTextEdit::NoWrap);
    m_log->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    layout->addWidget(m_log);
    return tab;
}

QWidget *RunStep::buildSettingsTab()
{
    auto *tab = new QWidget;
    auto *form = new QFormLayout;
    form->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    m_relTol = makeNumberEdit("lineEdit_odeRelTol", QStringLiteral("0.1"), tab);
    m_stage1Iterations = makeSpinBox("spinBox_numTotIter", 0, 99, 50, tab);
    m_stage2Iterations = makeSpinBox("spinBox_numS2_iter", 0, 999, 10, tab);
    m_stricterSampling = named(new QCheckBox(tr("initial cluster sampling with stricter criteria"), tab),
                               "checkBox_initialClusterSamplingCriteria");
    m_initialLambda = makeNumberEdit("lineEdit_initialLambda", QStringLiteral("1.00"), tab);
    m_maxInitialSampling = makeSpinBox("spinBox_maxNumInitialSampling", 0, 999, 20, tab);
    m_timeLimit = makeSpinBox("spinBox_ODEevalTimeLimit", 100, 1000000000, 100000, tab);
    m_timeLimit->setSingleStep(10);
    m_polish = named(new QCheckBox(tr("Polish the best point of each group with Levenberg–Marquardt"), tab),
                     "checkBox_polish");
    form->addRow(tr("ODE solve relative tolerence for Stage 1"), m_relTol);
    form->addRow(tr("Number of Stage1 iterations"), m_stage1Iterations);
    form->addRow(tr("Number of Stage2 iterations"), m_stage2Iterations);
    form->addRow(m_stricterSampling);
    form->addRow(tr("Initial lambda"), m_initialLambda);
    form->addRow(tr("Max num of initial random try"), m_maxInitialSampling);
    form->addRow(tr("ODE evaluation timeout"), m_timeLimit);
    form->addRow(m_polish);

    auto *layout = new QVBoxLayout(tab);
    layout->addLayout(form);
    layout->addWidget(buildWeightsFrame());
    layout->addStretch();
    return tab;
}

QFrame *RunStep::buildWeightsFrame()
{
    m_weightsFrame = named(new QFrame, "frame_weights");
    m_weightsFrame->setFrameShape(QFrame::StyledPanel);
    auto *form = new QFormLayout(m_weightsFrame);
    form->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    m_weightedIterations = makeSpinBox("spinBox_numWeightIter", 0, 30, 0, m_weightsFrame);
    m_weights = makeFormulaEditor("textEdit_weights", m_weightsFrame);
    m_weights->setMaximumHeight(120);
    form->addRow(tr("Number of iterations with the weights"), m_weightedIterations);
    form->addRow(m_weights);
    m_weightsFrame->hide();
    return m_weightsFrame;
}

void RunStep::setModelEditable(bool enable)
{
    const QVector<QWidget *> switched{m_stage1Iterations, m_stage2Iterations, m_weightedIterations,
                                      m_initialLambda,    m_relTol,           m_polish,
                                      m_runButton};
    for (QWidget *widget : switched)
        widget->setEnabled(enable);
    m_weights->setReadOnly(!enable);
}

void RunStep::runButtonClicked()
{
    if (m_control && m_control->isRunning())
        m_control->requestAbort();
    else
        startRun(false);
}

void RunStep::startRun(bool restart)
{
    if (m_control)
        m_control->start(restart);
}

void RunStep::requestAbort()
{
    if (m_control)
        m_control->requestAbort();
}

void RunStep::toggleWeights()
{
    toggleVisible(m_weightsFrame);
    m_weightedIterations->setValue(0);
}

void RunStep::stage1IterationsChanged(int count)
{
    if (m_weightedIterations->value() > count)
        m_weightedIterations->setValue(count);
}

void RunStep::weightedIterationsChanged(int count)
{
    if (count > m_stage1Iterations->value())
        m_weightedIterations->setValue(m_stage1Iterations->value());
}

void RunStep::computationCompleted()
{
    if (m_control)
        m_control->completed();
}

void RunStep::computationResult(const compResult &result)
{
    if (m_control)
        m_control->iterationResult(result);
}
