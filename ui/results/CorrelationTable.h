#pragma once

#include "model/Matrices.h"

#include <QStringList>

class QTableWidget;

// Shows a correlation matrix in a read-only table: two decimals, each cell
// shaded from blue (-1) through white (0) to red (+1); "-" on grey where the
// correlation is undefined.
void showCorrelationMatrix(QTableWidget *table, const DoubleMatrix &correlation, const QStringList &names);
