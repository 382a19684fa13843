#include "DoseEventsStep.h"

#include "CellValidation.h"
#include "StepWidgets.h"
#include "ui/ProjectDocument.h"
#include "ui/Workbench.h"
#include "ui/widgets/QTableWidgetWithCopyPaste.h"

#include <QHBoxLayout>
#include <QMenu>
#include <QPushButton>
#include <QSet>
#include <QVBoxLayout>

#include <algorithm>

DoseEventsStep::DoseEventsStep(const Workbench &workbench, QObject *parent)
    : WorkflowStep(workbench, parent)
{
    m_page = new QWidget;
    auto *layout = new QVBoxLayout(m_page);
    m_table = makeDataTable("tableWidget_doseEvents", rowIncrement,
                            {tr("Time"), tr("Compartment"), tr("Dosage"),
                             tr("Duration (set 0 if bolus,  -99 to set value)"), tr("Note (optional):")},
                            m_page);
    m_table->setContextMenuPolicy(Qt::CustomContextMenu);
    m_addRows = makeButton("pushButton_6", tr("increase dose rows"), m_page);
    layout->addWidget(m_table, 1);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_addRows);
    buttons->addStretch();
    layout->addLayout(buttons);
}

void DoseEventsStep::setModelEditable(bool enable)
{
    m_addRows->setEnabled(enable);
    setTableEditable(m_table, enable);
}

void DoseEventsStep::addRows()
{
    addTableRows(m_table, rowIncrement);
}

void DoseEventsStep::showContextMenu(const QPoint &position)
{
    const int row = m_table->rowAt(position.y());
    QMenu menu(m_table);
    menu.addAction(tr("Copy"), m_table, &QTableWidgetWithCopyPaste::copy);
    QAction *paste = menu.addAction(tr("Paste"), m_table, &QTableWidgetWithCopyPaste::paste);
    menu.addSeparator();
    QAction *insert = menu.addAction(tr("Insert row"), this,
                                     [this, row] { insertRow(row < 0 ? m_table->rowCount() : row); });
    QAction *remove = menu.addAction(tr("Delete selected rows"), this, &DoseEventsStep::deleteSelectedRows);
    // Only copying is offered while the model is locked by a run.
    for (QAction *action : {paste, insert, remove})
        action->setEnabled(m_addRows->isEnabled());
    menu.exec(m_table->viewport()->mapToGlobal(position));
}

void DoseEventsStep::insertRow(int row)
{
    m_table->insertRow(row);
}

void DoseEventsStep::deleteSelectedRows()
{
    QSet<int> rows;
    for (const QModelIndex &index : m_table->selectionModel()->selectedIndexes())
        rows.insert(index.row());
    QList<int> ordered = rows.values();
    std::sort(ordered.begin(), ordered.end(), std::greater<int>());
    for (int row : qAsConst(ordered))
        m_table->removeRow(row);
}

TableValidator *DoseEventsStep::validator()
{
    return TableValidator::of(m_table, int(DoseColumn::Note), workbench().errorPane,
                              [this](const StringMatrix &cells, int row, int column) {
                                  return checkDoseCells(workbench().document->model(), DoseTable::Estimation,
                                                        cells, row, column);
                              });
}

void DoseEventsStep::validateCell(QTableWidgetItem *item)
{
    validator()->cellEdited(item);
}

void DoseEventsStep::readDoseEvents()
{
    validator()->validateNow();
}
