#include "ui/ProjectDocument.h"

#include "ui/Workbench.h"
#include "ui/steps/DoseEventsStep.h"
#include "ui/steps/ModelEditorStep.h"
#include "ui/steps/ObservationStep.h"
#include "ui/steps/ParameterStep.h"
#include "ui/steps/SimulationStep.h"
#include "ui/tables/TableWidgetFiles.h"
#include "ui/widgets/QTableWidgetWithCopyPaste.h"

#include <QLineEdit>
#include <QTextEdit>

ProjectDocument::ProjectDocument(const Workbench &workbench, QObject *parent)
    : QObject(parent)
    , m_workbench(workbench)
{
}

void ProjectDocument::watchInputs()
{
    const Workbench &w = m_workbench;
    for (QTextEdit *editor : {w.modelEditor->odeEditor(), w.modelEditor->auxFunctionEditor(),
                              w.parameters->definitionEditor(), w.parameters->inverseEditor()})
        connect(editor, &QTextEdit::textChanged, this, &ProjectDocument::markChanged);
    for (QTableWidget *table : {static_cast<QTableWidget *>(w.parameters->specificationTable()),
                                static_cast<QTableWidget *>(w.doseEvents->table()),
                                static_cast<QTableWidget *>(w.observations->table()),
                                static_cast<QTableWidget *>(w.parameters->initialClusterTable())}) {
        connect(table, &QTableWidget::itemChanged, this, &ProjectDocument::markChanged);
        connect(table->model(), &QAbstractItemModel::rowsInserted, this, &ProjectDocument::markChanged);
        connect(table->model(), &QAbstractItemModel::rowsRemoved, this, &ProjectDocument::markChanged);
        connect(table->model(), &QAbstractItemModel::modelReset, this, &ProjectDocument::markChanged);
    }
}

ProjectInputs ProjectDocument::inputs() const
{
    const Workbench &w = m_workbench;
    ProjectInputs inputs;
    inputs.odeText = w.modelEditor->odeEditor()->toPlainText();
    inputs.auxiliaryText = w.modelEditor->auxFunctionEditor()->toPlainText();
    inputs.parameterSpecification = tableCells(w.parameters->specificationTable());
    inputs.gText = w.parameters->definitionEditor()->toPlainText();
    inputs.gInverseText = w.parameters->inverseEditor()->toPlainText();
    inputs.doseEvents = tableCells(w.doseEvents->table());
    inputs.observations = tableCells(w.observations->table());
    inputs.initialCluster = tableCells(w.parameters->initialClusterTable());
    inputs.simulationParameters = tableCells(w.simulation->parameterTable());
    inputs.simulationDoseEvents = tableCells(w.simulation->doseTable());
    inputs.simulationTimePoints = w.simulation->timePointsEdit()->text();
    return inputs;
}

const ProjectModel &ProjectDocument::model() const
{
    if (m_modelStale) {
        m_model = buildProjectModel(inputs());
        m_modelStale = false;
    }
    return m_model;
}

void ProjectDocument::markChanged()
{
    m_modelStale = true;
    emit changed();
}

void ProjectDocument::setResult(const compResult &result)
{
    m_result = result;
    emit resultChanged();
}

void ProjectDocument::clearResult()
{
    m_result = compResult();
    emit resultChanged();
}
