#include "ParameterStep.h"

#include "StepWidgets.h"
#include "ui/widgets/QTableWidgetWithCopyPaste.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QTextEdit>
#include <QVBoxLayout>

ParameterStep::ParameterStep(const Workbench &workbench, QObject *parent)
    : WorkflowStep(workbench, parent)
{
    buildSpecificationPage();
    buildTransformationPage();
}

void ParameterStep::buildSpecificationPage()
{
    m_specificationPage = new QWidget;
    auto *layout = new QVBoxLayout(m_specificationPage);
    // One row per model parameter; the rows and their name headers follow the
    // parameter names of the parsed ODE system.
    m_specification =
            makeDataTable("tableWidget_parametersSpec", 0,
                          {tr("Parameter Domain of Interest LB"), tr("Parameter Domain of Interest UB"),
                           tr("Theoretical LB (by default 0, set to 'nb' if no bound)"),
                           tr("Theoretical UB (if applicable)"), tr("Note (optional):")},
                          m_specificationPage);
    layout->addWidget(m_specification);
}

void ParameterStep::buildTransformationPage()
{
    m_transformationPage = new QWidget;
    auto *grid = new QGridLayout(m_transformationPage);
    m_definition = makeFormulaEditor("textEdit_paraDefinition", m_transformationPage);
    m_inverse = makeFormulaEditor("textEdit_paraDefInverse", m_transformationPage);
    grid->addWidget(makeLabel(tr("g(x)"), m_transformationPage, m_definition), 0, 0);
    grid->addWidget(makeLabel(tr("g inverse"), m_transformationPage, m_inverse), 0, 1);
    grid->addWidget(m_definition, 1, 0);
    grid->addWidget(m_inverse, 1, 1);

    // The initial cluster: one row per point, one column per unfixed
    // parameter (transformed coordinates x).
    m_initialCluster = makeDataTable("tableWidget_initialCluster", 0, {}, m_transformationPage);
    grid->addWidget(makeLabel(tr("Initial Cluster"), m_transformationPage, m_initialCluster), 2, 0, 1, 2);
    grid->addWidget(m_initialCluster, 3, 0, 1, 2);
    grid->setRowStretch(1, 2);
    grid->setRowStretch(3, 3);

    m_clusterSize = named(new QSpinBox(m_transformationPage), "spinBox_numInitICluster");
    m_clusterSize->setRange(0, 10000);
    m_clusterSize->setSingleStep(10);
    m_clusterSize->setValue(250);
    m_generate = makeButton("pushButton_4", tr("Generate Parameters"), m_transformationPage);
    m_import = makeButton("pushButton_importInitCluster", tr("Import initial X"), m_transformationPage);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(makeLabel(tr("Number of points:"), m_transformationPage, m_clusterSize));
    buttons->addWidget(m_clusterSize);
    buttons->addWidget(m_generate);
    buttons->addWidget(m_import);
    buttons->addStretch();
    grid->addLayout(buttons, 4, 0, 1, 2);
}

void ParameterStep::setModelEditable(bool enable)
{
    m_generate->setEnabled(enable);
    m_import->setEnabled(enable);
    m_clusterSize->setEnabled(enable);
    setTableEditable(m_specification, enable);
    setTableEditable(m_initialCluster, enable);
    m_definition->setReadOnly(!enable);
    m_inverse->setReadOnly(!enable);
}

void ParameterStep::generateParameters()
{
    // Filled in with the initial cluster: samples spinBox_numInitICluster points
    // uniformly in the transformed domain of interest.
}

void ParameterStep::makeTransformation()
{
    // Filled in with the per-cell validation: regenerates g(x) and g inverse.
}

void ParameterStep::specificationItemChanged(QTableWidgetItem *, QTableWidgetItem *)
{
    // Filled in with the per-cell validation of the parameter specification.
}

void ParameterStep::definitionChanged()
{
    // Filled in with the per-cell validation: re-parses g(x).
}

void ParameterStep::inverseChanged()
{
    // Filled in with the per-cell validation: re-parses g inverse.
}

void ParameterStep::importInitialCluster()
{
    // Filled in with the initial cluster: reads a comma-separated file.
}

void ParameterStep::clusterSizeChanged(int)
{
    // Filled in with the initial cluster.
}
