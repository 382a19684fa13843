#pragma once

#include <QObject>

struct Workbench;
class QWidget;

// One page (or two) of the workflow toolbox and the behaviour behind it. A
// step builds its widgets with their fixed object names in its constructor;
// the window places the pages and forwards its named slots to the step.
class WorkflowStep : public QObject {
    Q_OBJECT
public:
    WorkflowStep(const Workbench &workbench, QObject *parent);

    // Switches the step's model-defining widgets between editable (idle) and
    // locked (while the engine runs). Steps without such widgets keep the
    // default, which does nothing.
    virtual void setModelEditable(bool enable);

protected:
    const Workbench &workbench() const { return m_workbench; }

private:
    const Workbench &m_workbench;
};
