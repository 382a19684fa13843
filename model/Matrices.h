#pragma once

#include <QStringList>
#include <QVector>

// Two-dimensional data as the tables, the engine and the result files hold
// it: one inner vector per row. Rows may differ in length in every kind.
using DoubleMatrix = QVector<QVector<double>>;
using IntMatrix = QVector<QVector<qint32>>;
using StringMatrix = QVector<QStringList>;
