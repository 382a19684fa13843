#include "CorrelationTable.h"

#include <QHeaderView>
#include <QTableWidget>

#include <cmath>

namespace {

QColor shade(double r)
{
    if (std::isnan(r))
        return QColor(225, 225, 225);
    const double strength = std::min(1.0, std::abs(r));
    const int fade = int(255 - 175 * strength);
    return r >= 0 ? QColor(255, fade, fade) : QColor(fade, fade, 255);
}

} // namespace

void showCorrelationMatrix(QTableWidget *table, const DoubleMatrix &correlation, const QStringList &names)
{
    const int n = correlation.size();
    table->setRowCount(n);
    table->setColumnCount(n);
    table->setHorizontalHeaderLabels(names);
    table->setVerticalHeaderLabels(names);
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c) {
            const double value = correlation[r].value(c, std::nan(""));
            auto *item = new QTableWidgetItem(std::isnan(value) ? QStringLiteral("-")
                                                                : QString::number(value, 'f', 2));
            item->setFlags(Qt::ItemIsSelectable | Qt::ItemIsEnabled);
            item->setTextAlignment(Qt::AlignCenter);
            item->setBackground(shade(value));
            item->setForeground(QColor(Qt::black));
            table->setItem(r, c, item);
        }
    table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
}
