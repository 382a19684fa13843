#include "WorkflowStep.h"

WorkflowStep::WorkflowStep(const Workbench &workbench, QObject *parent)
    : QObject(parent)
    , m_workbench(workbench)
{
}

void WorkflowStep::setModelEditable(bool) {}
