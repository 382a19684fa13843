#pragma once

#include "model/EventTables.h"
#include "model/OdeSystemText.h"
#include "model/ParameterSpecification.h"
#include "model/Problem.h"
#include "project/TableCells.h"

#include <QString>
#include <QStringList>
#include <QVector>

// What a user gives to define a project, as the window's editors and tables
// hold it and as the model folder stores it: texts and table cells.
struct ProjectInputs {
    QString odeText;
    QString auxiliaryText;
    TableCells parameterSpecification;
    QString gText;        // empty: generated from the parameter specification
    QString gInverseText; // empty: generated likewise
    TableCells doseEvents;
    TableCells observations;
    TableCells initialCluster; // no rows: no initial cluster given

    // The simulation tab's settings: saved with the project, not part of the
    // model (and not read back: a load starts the simulation doses from the
    // model's dose events).
    TableCells simulationParameters;
    TableCells simulationDoseEvents;
    QString simulationTimePoints;

    // Model files a folder lacked ("ODE_expression.txt", ...); always empty for
    // inputs taken from the window.
    QStringList missingFiles;
    // Model files that are not text (NUL bytes or invalid UTF-8).
    QStringList unreadableFiles;
};

// A checked model built from project inputs: the parsed ODE system, the
// parameter specification and transformation, the events and the initial
// cluster, with every problem found.
struct ProjectModel {
    QString folder; // the project folder it was read from; empty for window inputs

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

    DoubleMatrix initialCluster; // empty when none is given

    // Problems found, in the order found.
    Problems problems;

    bool isValid() const { return problems.isEmpty(); }
    // The cluster row x mapped to model parameters through g.
    QVector<double> parametersOf(const QVector<double> &x) const;
};

// Builds and checks the model. Problems are collected, never thrown; the
// build stops early where later checks would only repeat an earlier problem
// (no ODE text, a missing or unusable parameter specification).
ProjectModel buildProjectModel(const ProjectInputs &inputs);

// The model files of a project folder as inputs. A file that is missing is
// listed in missingFiles and leaves its input empty.
ProjectInputs readProjectInputs(const QString &folder);

// Reads the folder's model files and builds the model from them.
ProjectModel loadProjectModel(const QString &folder);

// The file's text, or a null string when it cannot be read.
QString readTextFile(const QString &path);
// False for bytes that hold a NUL byte or are not valid UTF-8.
bool isPlainText(const QByteArray &bytes);
