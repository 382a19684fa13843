#pragma once

#include "model/EventTables.h"
#include "model/OdeSystemText.h"
#include "model/ParameterSpecification.h"
#include "project/TableCells.h"

#include <QString>
#include <QStringList>
#include <QVector>

// The model files of a project folder ("model/ODE_expression.txt",
// "model/dose_events.txt", ...), read without widgets and checked with the
// same checks and messages as the workbench's own edits.
struct ProjectModel {
    QString folder;

    OdeSystemText system;
    QVector<ParameterSpecificationRow> parameterRows;
    QString gText;
    QString gInverseText;
    ParsedEquations g;
    ParsedEquations gInverse;
    int searchVariableCount = 0;
    QVector<int> unfixedParameters;

    QVector<DoseEvent> doseEvents;
    QVector<ObservationEvent> observations;
    QVector<double> observedValues;
    // Parameter values used to read expression cells of the tables: the
    // midpoints of the domains of interest.
    QVector<double> referenceParameters;

    DoubleMatrix initialCluster; // empty when the folder has none

    // Problems found, in the order found; HTML fragments where the system
    // writes them so.
    QStringList errors;

    bool isValid() const { return errors.isEmpty(); }
    // The cluster row x mapped to model parameters through g.
    QVector<double> parametersOf(const QVector<double> &x) const;
};

// Reads and checks the model files of folder. A missing required file (the
// ODE text, the parameter specification, the dose events or the
// observations) is an error; missing g and g inverse texts are generated from
// the parameter specification.
ProjectModel loadProjectModel(const QString &folder);

// The file's text, or a null string when it cannot be read.
QString readTextFile(const QString &path);
