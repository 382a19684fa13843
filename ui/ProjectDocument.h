#pragma once

#include "project/ProjectModel.h"
#include "project/compResult.h"

#include <QObject>

struct Workbench;

// The project as the window holds it: the inputs read from the steps' editors
// and tables, the model built from them by the core's pipeline (the same
// build the batch tool makes from a folder), and the current computation
// result. Steps read the model and the result from here instead of from
// each other.
class ProjectDocument : public QObject {
    Q_OBJECT
public:
    ProjectDocument(const Workbench &workbench, QObject *parent);

    // Marks the model stale whenever a model-defining editor or table of a
    // step changes; called once the steps exist.
    void watchInputs();

    // The texts and cells of every step, as they stand now.
    ProjectInputs inputs() const;
    // The model built from inputs(); rebuilt after markChanged().
    const ProjectModel &model() const;
    // Call after an edit of a model-defining text or table.
    void markChanged();

    // The current result: the newest record of a run or the loaded one
    // (empty before either).
    const compResult &result() const { return m_result; }
    bool hasResult() const { return !m_result.X.isEmpty(); }
    void setResult(const compResult &result);
    void clearResult();

signals:
    // A model-defining text or table changed.
    void changed();
    // The current result was replaced (a run's iteration, its end, a load).
    void resultChanged();

private:
    const Workbench &m_workbench;
    mutable ProjectModel m_model;
    mutable bool m_modelStale = true;
    compResult m_result;
};
