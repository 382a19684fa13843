#include "Workbench.h"

#include "ui/MainWindowActions.h"
#include "ui/steps/DoseEventsStep.h"
#include "ui/steps/ModelEditorStep.h"
#include "ui/steps/ObservationStep.h"
#include "ui/steps/ParameterStep.h"
#include "ui/steps/ResultsStep.h"
#include "ui/steps/RunStep.h"
#include "ui/steps/SimulationStep.h"

#include <QVector>

void Workbench::setModelEditable(bool enable) const
{
    const QVector<WorkflowStep *> steps{modelEditor, doseEvents, parameters, observations,
                                        run,         results,    simulation};
    for (WorkflowStep *step : steps)
        step->setModelEditable(enable);
}

void Workbench::setComputing(bool computing) const
{
    actions->setComputing(computing);
}
