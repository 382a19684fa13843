#pragma once

#include "project/ProjectModel.h"

#include <QString>

// Saving a project: the model files under "model/" in a fixed order, the
// exported scripts beside them, and a time-stamped copy of the key files under
// "history/model <time>".
//
// The sub-folders "compResult" and "model" are created first (existing ones
// are kept). The plain-text files are chained: one that cannot be opened ends
// the save there, so later files are not written. The table and matrix
// writers report their own failures on the debug log and do not end the
// chain. model is the model built from inputs (for the name lists, the
// dependency structure and the scripts; a model with problems gets no
// scripts). Returns false when the chain ended early.
bool saveModelFolder(const QString &folder, const ProjectInputs &inputs, const ProjectModel &model);

// The history copy of a save: "history/model " followed by the current UTC
// time in Qt's default text form (":" replaced by "_"), holding copies of the
// nine key model files. A copy never overwrites an existing file. Returns the
// history folder's path.
QString copyModelToHistory(const QString &folder);

// The lower and the upper bounds of the domains of interest, one column per
// parameter (the content of "x_ul.csv").
DoubleMatrix domainBoundsMatrix(const QVector<ParameterSpecificationRow> &rows);
