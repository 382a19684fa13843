#pragma once

#include "WorkflowStep.h"

class QPoint;
class QPushButton;
class QTableWidgetItem;
class QTableWidgetWithCopyPaste;
class QWidget;

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

    // Filled in with the per-cell validation.
    void validateCell(QTableWidgetItem *item);
    void readDoseEvents();

private:
    QWidget *m_page = nullptr;
    QTableWidgetWithCopyPaste *m_table = nullptr;
    QPushButton *m_addRows = nullptr;
};
