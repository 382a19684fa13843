#pragma once

#include "model/ParameterSpecification.h"
#include "project/compResult.h"

#include <QStringList>
#include <QVector>

struct ProjectModel;

// What the result views need to know beside the numbers of a record: the
// names of its columns, the parameters' domains and bounds, and the times,
// variables and values of the observations. Taken from the model when the
// model's sizes fit the record; otherwise the columns are numbered (P1, x1,
// y1, S1, ...) and bounds and observations are unknown (NaN), so a record
// never shows with the names of another model.
struct ResultFrame {
    QStringList parameterNames;   // one per column of Parameter
    QStringList searchNames;      // one per column of X: the parameter it moves
    QVector<int> searchParameter; // per column of X, its column of Parameter (-1: unknown)
    QVector<ParameterSpecificationRow> parameterRows; // one per parameter
    QVector<bool> logScale;                           // per parameter, see useLogScale

    QVector<double> observationTimes; // one per column of Y
    QStringList observationVariables; // the variable expression of each column of Y
    QVector<double> observedValues;   // NaN when unknown
    QStringList stateNames;           // one per column of the solutions
    bool modelFits = false;           // the model's names and observations apply

    int parameterCount() const { return parameterNames.size(); }
    int searchCount() const { return searchNames.size(); }
    int observationCount() const { return observationTimes.size(); }
    // The distinct observation variables in order of first appearance, and
    // for each the columns of Y that observe it, by time.
    QStringList distinctVariables() const;
    QVector<int> observationsOf(const QString &variable) const;
};

ResultFrame describeResult(const compResult &result, const ProjectModel &model);

// A parameter is shown on a logarithmic axis when it is positive by its
// theoretical lower bound (0 or more) and either its transformation is
// logarithmic (no upper bound) or its domain of interest spans a factor of
// ten or more.
bool useLogScale(const ParameterSpecificationRow &row);

// The number of columns of a history's widest row at iteration k (0 when the
// iteration is missing).
int columnCountAt(const QVector<DoubleMatrix> &history, int k);
