#pragma once

#include "model/Matrices.h"

#include <QString>
#include <QStringList>
#include <QVector>

// "compResult/polish_summary.csv": one block per polished minimiser, blocks
// separated by an empty line. Each block holds labelled rows ("Minimiser",
// "Group", "Points in group", "Start SSR", "SSR", "Iterations", "Stop",
// "Degrees of freedom", "Condition number of J"), then a header row
// "Parameter,Estimate,Standard error,Correlation with <name>..." and one row
// per parameter. A standard error that cannot be computed is written as
// "not identifiable"; a correlation without value as "NaN". Numbers have 16
// significant digits, correlations 6.
struct PolishSummaryBlock {
    int minimiser = 1; // from 1
    int group = 1;     // from 1
    int groupSize = 0;
    double startSsr = 0;
    double ssr = 0;
    int iterations = 0;
    QString stopReason;
    int degreesOfFreedom = 0;
    double conditionNumber = 0;
    QStringList parameterNames;
    QVector<double> estimates;
    QVector<double> standardErrors; // NaN: not identifiable
    DoubleMatrix correlation;
};

QString polishSummaryFileName();
QStringList polishSummaryLines(const QVector<PolishSummaryBlock> &blocks);
// Writes the lines into the project's "compResult" folder; a file that cannot
// be written gives the debug line "Error, unable to save".
void writePolishSummary(const QString &projectFolder, const QVector<PolishSummaryBlock> &blocks);
