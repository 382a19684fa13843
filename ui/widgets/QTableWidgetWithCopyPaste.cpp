#include "QTableWidgetWithCopyPaste.h"

#include <QApplication>
#include <QClipboard>
#include <QKeyEvent>
#include <QMessageBox>
#include <QRegularExpression>

#include <algorithm>

void QTableWidgetWithCopyPaste::keyPressEvent(QKeyEvent *event)
{
    if (event->matches(QKeySequence::Copy))
        copy();
    else if (event->matches(QKeySequence::Paste))
        paste();
    else
        QTableWidget::keyPressEvent(event);
}

void QTableWidgetWithCopyPaste::copy()
{
    QModelIndexList indexes = selectedIndexes();
    if (indexes.isEmpty())
        return;
    std::sort(indexes.begin(), indexes.end());

    QString text;
    QModelIndex previous = indexes.takeFirst();
    for (const QModelIndex &current : qAsConst(indexes)) {
        text += previous.data(Qt::DisplayRole).toString();
        text += current.row() != previous.row() ? QLatin1Char('\n') : QLatin1Char('\t');
        previous = current;
    }
    text += previous.data(Qt::DisplayRole).toString();
    text += QLatin1Char('\n');
    QApplication::clipboard()->setText(text);
}

void QTableWidgetWithCopyPaste::paste()
{
    const QString text = QApplication::clipboard()->text();
    QStringList parts = text.split(QRegularExpression(QStringLiteral("\n|\t")));
    while (!parts.isEmpty() && parts.last().isEmpty())
        parts.removeLast();

    // Text without any line end holds no complete row; it is refused like
    // every other block that does not split into rows.
    const int rows = text.count(QLatin1Char('\n'));
    if (rows == 0 || parts.size() % rows != 0) {
        QMessageBox::critical(this, tr("Error"),
                              tr("Invalid clipboard data, unable to perform paste operation."));
        return;
    }
    const int columns = parts.size() / rows;
    if (columns != columnCount()) {
        QMessageBox::critical(this, tr("Error"), tr("Invalid clipboard data, incorrect number of columns."));
        return;
    }

    setRowCount(rows);
    for (int k = 0; k < parts.size(); ++k)
        setItem(k / columns, k % columns, new QTableWidgetItem(parts[k]));
}
