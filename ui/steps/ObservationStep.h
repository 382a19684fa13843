#pragma once

#include "WorkflowStep.h"

#include "project/TableCells.h"

class QPushButton;
class QTableWidgetItem;
class QTableWidgetWithCopyPaste;
class QWidget;
class TableValidator;

// Step4: the observation table, its row button and the Observation menu's
// column operations with their one-level undo.
class ObservationStep : public WorkflowStep {
    Q_OBJECT
public:
    // Columns of the observation table.
    enum Column { TimeColumn = 0, VariableColumn = 1, ValueColumn = 2, NoteColumn = 3 };
    // Rows added by "increase observation rows" (and present at start).
    static constexpr int rowIncrement = 10;

    ObservationStep(const Workbench &workbench, QObject *parent);

    QWidget *page() const { return m_page; }
    QTableWidgetWithCopyPaste *table() const { return m_table; }
    // The table as it was before the last Observation-menu operation, one
    // string per cell ("" for a cell without item); empty before the first.
    const StringMatrix &undoSnapshot() const { return m_snapshot; }

    void setModelEditable(bool enable) override;
    void addRows();

    // Observation menu. Each operation but undo first replaces the snapshot.
    // The clipboard list is split on newline, tab or comma, keeping empty
    // pieces; piece i goes into row i, and the table grows but never shrinks.
    void pasteColumnFromClipboard(Column column);
    // Copies the variable expression of row 0 into every row.
    void fillVariables();
    // Wraps every non-empty value as "LOG10(" value ")", without evaluating.
    void log10Values();
    // Restores the snapshot; it is kept, so a repeated undo changes nothing.
    void undo();

    // Checks the table after an edit of item, as the dose table does:
    // failing cells red, the others black, the table's current problems
    // (after the edited cell's note) in the error pane; edits made together
    // are checked once.
    void validateCell(QTableWidgetItem *item);
    // Checks the whole table now, without an edited cell.
    void readObservations();

private:
    void takeSnapshot();
    TableValidator *validator();

    QWidget *m_page = nullptr;
    QTableWidgetWithCopyPaste *m_table = nullptr;
    QPushButton *m_addRows = nullptr;
    StringMatrix m_snapshot;
};
