#pragma once

#include "model/EventTables.h"
#include "model/Problem.h"
#include "project/TableCells.h"

#include <QObject>
#include <QVector>

#include <functional>

struct ProjectModel;
class QTableWidget;
class QTableWidgetItem;
class QTextEdit;

// The outcome of checking a model table, as the window shows it: every
// current problem of the table, the cells to show in red, and the note of the
// edited cell when it holds an understood expression (its text "=" value).
struct TableCheck {
    Problems problems;
    QVector<CellPosition> invalidCells;
    QString note;
};

// The dose and observation tables checked against the model's state and
// parameter names, expression cells evaluated at its reference parameters.
// editedRow and editedColumn (0-based, -1 for none) name the cell whose note
// is wanted.
TableCheck checkDoseCells(const ProjectModel &model, DoseTable table, const StringMatrix &cells,
                          int editedRow, int editedColumn);
TableCheck checkObservationCells(const ProjectModel &model, const StringMatrix &cells, int editedRow,
                                 int editedColumn);

// The checked columns (the first checkedColumns) of every row: text red in
// the invalid cells, black in the others. Cells without item stay as they
// are. The table's signals are blocked meanwhile, so recolouring never
// reads as an edit.
void colourCells(QTableWidget *table, int checkedColumns, const QVector<CellPosition> &invalidCells);

// The error pane's text for a checked table: the edited cell's note (blue),
// then every problem in table order (red), "<br>" between them. Empty when the
// table has neither, so fixing the last bad cell clears the pane.
QString tableCheckHtml(const TableCheck &check);

// Re-checks a model table after its cells were edited. The whole table is
// checked, so the pane always lists the problems the table has now. Edits
// are gathered and checked together when control returns to the event loop:
// a paste or a load of many cells costs one check, not one per cell.
class TableValidator : public QObject {
    Q_OBJECT
public:
    using Check = std::function<TableCheck(const StringMatrix &cells, int editedRow, int editedColumn)>;

    TableValidator(QTableWidget *table, int checkedColumns, QTextEdit *pane, Check check);

    // The validator of the table, made with these arguments the first time.
    static TableValidator *of(QTableWidget *table, int checkedColumns, QTextEdit *pane, const Check &check);

    // Schedules a check; the last edited cell's note is shown.
    void cellEdited(const QTableWidgetItem *item);
    // Checks the table now, without an edited cell.
    void validateNow();

private:
    void validate(int editedRow, int editedColumn);

    QTableWidget *m_table;
    int m_checkedColumns;
    QTextEdit *m_pane;
    Check m_check;
    bool m_scheduled = false;
    int m_editedRow = -1;
    int m_editedColumn = -1;
};
