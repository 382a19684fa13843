#include "StepWidgets.h"

#include "ui/widgets/QTableWidgetWithCopyPaste.h"

#include <QFontDatabase>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTextEdit>

#include <algorithm>

QPushButton *makeButton(const char *objectName, const QString &text, QWidget *parent)
{
    return named(new QPushButton(text, parent), objectName);
}

QLabel *makeLabel(const QString &text, QWidget *parent, QWidget *buddy)
{
    auto *label = new QLabel(text, parent);
    if (buddy)
        label->setBuddy(buddy);
    return label;
}

QTextEdit *makeFormulaEditor(const char *objectName, QWidget *parent)
{
    auto *editor = named(new QTextEdit(parent), objectName);
    editor->setAcceptRichText(false);
    editor->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    editor->setLineWrapMode(QTextEdit::NoWrap);
    return editor;
}

QTableWidgetWithCopyPaste *makeDataTable(const char *objectName, int rows, const QStringList &headers,
                                         QWidget *parent)
{
    auto *table = named(new QTableWidgetWithCopyPaste(rows, headers.size(), parent), objectName);
    table->setHorizontalHeaderLabels(headers);
    table->horizontalHeader()->setStretchLastSection(true);
    // Columns as wide as their headers, and wide enough for a number with
    // several digits under a short header ("Time", "Value").
    table->resizeColumnsToContents();
    for (int c = 0; c < table->columnCount(); ++c)
        table->setColumnWidth(c, std::max(table->columnWidth(c), 100));
    // Rows a little taller than the text, so a page shows many of them.
    table->verticalHeader()->setDefaultSectionSize(table->fontMetrics().height() + 8);
    return table;
}

void addTableRows(QTableWidget *table, int count)
{
    table->setRowCount(table->rowCount() + count);
}

void setTableEditable(QAbstractItemView *table, bool enable)
{
    table->setEditTriggers(enable ? QAbstractItemView::CurrentChanged : QAbstractItemView::NoEditTriggers);
}

void toggleVisible(QWidget *widget)
{
    widget->setVisible(widget->isHidden());
}
