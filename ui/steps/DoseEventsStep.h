#pragma once

#include "WorkflowStep.h"

class QPoint;
class QPushButton;
class QTableWidgetItem;
class QTableWidgetWithCopyPaste;
class QWidget;
class TableValidator;

// Step2: the dose-event table and its row button.
class DoseEventsStep : public WorkflowStep {
    Q_OBJECT
public:
    // Rows added by "increase dose rows" (and present at start).
    static constexpr int rowIncrement = 10;

    DoseEventsStep(const Workbench &workbench, QObject *parent);

    QWidget *page() const { return m_page; }
    QTableWidgetWithCopyPaste *table() const { return m_table; }

    void setModelEditable(bool enable) override;

    void addRows();
    // The table's context menu: copy, paste, insert a row above the clicked
    // one, delete the selected rows.
    void showContextMenu(const QPoint &position);
    void insertRow(int row);
    void deleteSelectedRows();

    // Checks the table after an edit of item: failing cells red, the others
    // black, and the table's current problems (after the edited cell's note
    // for an understood expression) in the error pane. Edits made together,
    // as by a paste, are checked once when control returns to the event loop.
    void validateCell(QTableWidgetItem *item);
    // Checks the whole table now, the same way, without an edited cell (after
    // a load, once the parameter specification is in place).
    void readDoseEvents();

private:
    TableValidator *validator();

    QWidget *m_page = nullptr;
    QTableWidgetWithCopyPaste *m_table = nullptr;
    QPushButton *m_addRows = nullptr;
};
