#include "ObservationStep.h"

#include "CellValidation.h"
#include "StepWidgets.h"
#include "ui/ProjectDocument.h"
#include "ui/Workbench.h"
#include "ui/tables/TableWidgetFiles.h"
#include "ui/widgets/QTableWidgetWithCopyPaste.h"

#include <QApplication>
#include <QClipboard>
#include <QHBoxLayout>
#include <QPushButton>
#include <QRegularExpression>
#include <QVBoxLayout>

ObservationStep::ObservationStep(const Workbench &workbench, QObject *parent)
    : WorkflowStep(workbench, parent)
{
    m_page = new QWidget;
    auto *layout = new QVBoxLayout(m_page);
    m_table = makeDataTable("tableWidget_observations", rowIncrement,
                            {tr("Time"), tr("Observation variable"), tr("Value"), tr("Note (optional):")},
                            m_page);
    m_addRows = makeButton("pushButton_increaseObsRows", tr("increase observation rows"), m_page);
    layout->addWidget(m_table, 1);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_addRows);
    buttons->addStretch();
    layout->addLayout(buttons);
}

void ObservationStep::setModelEditable(bool enable)
{
    m_addRows->setEnabled(enable);
    setTableEditable(m_table, enable);
}

void ObservationStep::addRows()
{
    addTableRows(m_table, rowIncrement);
}

void ObservationStep::takeSnapshot()
{
    m_snapshot.clear();
    for (int r = 0; r < m_table->rowCount(); ++r) {
        QStringList row;
        for (int c = 0; c < m_table->columnCount(); ++c) {
            const QTableWidgetItem *item = m_table->item(r, c);
            row << (item ? item->text() : QString());
        }
        m_snapshot << row;
    }
}

void ObservationStep::pasteColumnFromClipboard(Column column)
{
    takeSnapshot();
    const QStringList pieces =
            QApplication::clipboard()->text().split(QRegularExpression(QStringLiteral("\n|\t|,")));
    if (m_table->rowCount() < pieces.size())
        m_table->setRowCount(pieces.size());
    for (int i = 0; i < pieces.size(); ++i)
        m_table->setItem(i, column, new QTableWidgetItem(pieces[i]));
}

void ObservationStep::fillVariables()
{
    takeSnapshot();
    const QTableWidgetItem *first = m_table->rowCount() > 0 ? m_table->item(0, VariableColumn) : nullptr;
    if (!first)
        return;
    const QString variable = first->text();
    for (int r = 0; r < m_table->rowCount(); ++r)
        m_table->setItem(r, VariableColumn, new QTableWidgetItem(variable));
}

void ObservationStep::log10Values()
{
    takeSnapshot();
    for (int r = 0; r < m_table->rowCount(); ++r) {
        const QTableWidgetItem *item = m_table->item(r, ValueColumn);
        if (item && !item->text().isEmpty())
            m_table->setItem(
                    r, ValueColumn,
                    new QTableWidgetItem(QStringLiteral("LOG10(") + item->text() + QLatin1Char(')')));
    }
}

void ObservationStep::undo()
{
    if (!m_snapshot.isEmpty())
        matrixToTable(m_table, m_snapshot);
}

TableValidator *ObservationStep::validator()
{
    return TableValidator::of(m_table, NoteColumn, workbench().errorPane,
                              [this](const StringMatrix &cells, int row, int column) {
                                  return checkObservationCells(workbench().document->model(), cells, row,
                                                               column);
                              });
}

void ObservationStep::validateCell(QTableWidgetItem *item)
{
    validator()->cellEdited(item);
}

void ObservationStep::readObservations()
{
    validator()->validateNow();
}
