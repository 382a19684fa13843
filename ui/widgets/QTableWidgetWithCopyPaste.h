#pragma once

#include <QTableWidget>

// A table that exchanges rectangular blocks of cells with a spreadsheet
// through the system clipboard: cells separated by a tab, rows ended by "\n".
// The platform's standard Copy and Paste keys trigger copy() and paste().
class QTableWidgetWithCopyPaste : public QTableWidget {
    Q_OBJECT
public:
    using QTableWidget::QTableWidget;

public slots:
    // Writes the selected cells in row-then-column order: a tab between cells
    // of one row, "\n" where the row changes and after the last cell. Gaps in
    // a non-rectangular selection are not filled.
    void copy();
    // Replaces the whole table from row 0 with the clipboard block. A block
    // whose cell count does not divide into its rows, or whose width differs
    // from the column count, is refused with a critical message box and the
    // table is left unchanged.
    void paste();

protected:
    void keyPressEvent(QKeyEvent *event) override;
};
