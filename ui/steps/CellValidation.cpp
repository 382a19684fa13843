#include "CellValidation.h"

#include "project/ProjectModel.h"
#include "ui/messages/ProblemHtml.h"
#include "ui/tables/TableWidgetFiles.h"

#include <QSet>
#include <QSignalBlocker>
#include <QTableWidget>
#include <QTextEdit>
#include <QTimer>

#include <algorithm>

namespace {

bool isEditedCell(const StringMatrix &cells, int row, int column, int checkedColumns)
{
    return row >= 0 && row < cells.size() && column >= 0 && column < checkedColumns;
}

} // namespace

TableCheck checkDoseCells(const ProjectModel &model, DoseTable table, const StringMatrix &cells,
                          int editedRow, int editedColumn)
{
    const DoseTableResult result = readDoseTable(cells, table, model.system, model.referenceParameters);
    TableCheck check{result.problems, result.invalidCells, QString()};
    if (isEditedCell(cells, editedRow, editedColumn, int(DoseColumn::Note))) {
        DoseEvent scratch;
        check.note = readDoseCell(scratch, DoseColumn(editedColumn), cells[editedRow].value(editedColumn),
                                  editedRow + 1, table, model.system.stateVariableNames,
                                  model.system.parameterNames, model.referenceParameters)
                             .note;
    }
    return check;
}

TableCheck checkObservationCells(const ProjectModel &model, const StringMatrix &cells, int editedRow,
                                 int editedColumn)
{
    const ObservationTableResult result =
            readObservationTable(cells, model.system, model.referenceParameters);
    TableCheck check{result.problems, result.invalidCells, QString()};
    if (isEditedCell(cells, editedRow, editedColumn, int(ObservationColumn::Value) + 1)) {
        ObservationEvent scratch;
        check.note = readObservationCell(scratch, ObservationColumn(editedColumn),
                                         cells[editedRow].value(editedColumn), editedRow + 1,
                                         model.system.stateVariableNames, model.system.parameterNames,
                                         model.referenceParameters)
                             .note;
    }
    return check;
}

void colourCells(QTableWidget *table, int checkedColumns, const QVector<CellPosition> &invalidCells)
{
    QSet<QPair<int, int>> invalid;
    for (const CellPosition &cell : invalidCells)
        invalid.insert({cell.row, cell.column});
    const QSignalBlocker blocker(table);
    const int columns = std::min(checkedColumns, table->columnCount());
    for (int r = 0; r < table->rowCount(); ++r) {
        for (int c = 0; c < columns; ++c) {
            QTableWidgetItem *item = table->item(r, c);
            if (!item)
                continue;
            const QColor colour = invalid.contains({r, c}) ? Qt::red : Qt::black;
            // Only a real change, so an unchanged table is not repainted.
            const QVariant current = item->data(Qt::ForegroundRole);
            if (!current.isValid() || current.value<QBrush>().color() != colour)
                item->setForeground(colour);
        }
    }
}

QString tableCheckHtml(const TableCheck &check)
{
    QStringList parts;
    if (!check.note.isEmpty())
        parts << noteHtml(check.note);
    if (!check.problems.isEmpty())
        parts << problemsHtml(check.problems);
    return parts.join(QLatin1String("<br>"));
}

TableValidator::TableValidator(QTableWidget *table, int checkedColumns, QTextEdit *pane, Check check)
    : QObject(table)
    , m_table(table)
    , m_checkedColumns(checkedColumns)
    , m_pane(pane)
    , m_check(std::move(check))
{
}

TableValidator *TableValidator::of(QTableWidget *table, int checkedColumns, QTextEdit *pane,
                                   const Check &check)
{
    auto *validator = table->findChild<TableValidator *>(QString(), Qt::FindDirectChildrenOnly);
    return validator ? validator : new TableValidator(table, checkedColumns, pane, check);
}

void TableValidator::cellEdited(const QTableWidgetItem *item)
{
    if (item) {
        m_editedRow = item->row();
        m_editedColumn = item->column();
    }
    if (m_scheduled)
        return;
    m_scheduled = true;
    QTimer::singleShot(0, this, [this] {
        // A check made meanwhile by validateNow() has done the work.
        if (m_scheduled)
            validate(m_editedRow, m_editedColumn);
    });
}

void TableValidator::validateNow()
{
    validate(-1, -1);
}

void TableValidator::validate(int editedRow, int editedColumn)
{
    m_scheduled = false;
    m_editedRow = -1;
    m_editedColumn = -1;
    const TableCheck check = m_check(tableToStringMatrix(m_table), editedRow, editedColumn);
    colourCells(m_table, m_checkedColumns, check.invalidCells);
    m_pane->setHtml(tableCheckHtml(check));
}
