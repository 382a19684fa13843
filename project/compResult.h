#pragma once

#include "model/Matrices.h"

#include <QMetaType>
#include <QStringList>
#include <QVector>

// The result record of a run, sent to the window after every iteration and
// written to the project's "compResult" folder. Every history is indexed by
// iteration k, then by point i.
struct compResult {
    QVector<DoubleMatrix> X;         // transformed coordinates, one row per point
    QVector<DoubleMatrix> Y;         // model outputs, one row per point
    QVector<DoubleMatrix> Parameter; // model parameters, one row per point
    QVector<QVector<double>> SSR;    // per point; NaN for a failed point
    QVector<QVector<double>> lambda; // per point, after the iteration's update

    QStringList log; // the computation log, one entry per line

    // The latest model solution of every point: one row per solution time,
    // one column per state variable; empty for a point never evaluated.
    QVector<DoubleMatrix> solutions;
    QVector<double> solutionTimes;

    DoubleMatrix lastJacobian; // outputs x parameters, of the last step computation

    // The points of the newest iteration ordered by SSR, smallest first,
    // failed points last.
    QVector<int> sortIndex;

    int iterationCount() const { return X.size(); }
    // Recomputes sortIndex from the newest SSR entry.
    void updateSortIndex();
    // Cuts every history back to count entries.
    void truncateHistories(int count);
};

Q_DECLARE_METATYPE(compResult)
