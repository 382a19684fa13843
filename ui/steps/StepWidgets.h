#pragma once

#include <QAbstractItemView>
#include <QString>
#include <QStringList>

class QLabel;
class QPushButton;
class QTableWidget;
class QTableWidgetWithCopyPaste;
class QTextEdit;
class QWidget;

// Small builders shared by the step pages, so every page names, sizes and
// fonts its widgets the same way.

// Gives the widget its object name and returns it.
template<typename W>
W *named(W *widget, const char *objectName)
{
    widget->setObjectName(QString::fromLatin1(objectName));
    return widget;
}

QPushButton *makeButton(const char *objectName, const QString &text, QWidget *parent);
QLabel *makeLabel(const QString &text, QWidget *parent, QWidget *buddy = nullptr);
// A plain-text formula editor with a fixed-width font; rich text set by the
// program (highlights) still shows, pasted formatting does not.
QTextEdit *makeFormulaEditor(const char *objectName, QWidget *parent);
// A copy-paste table with the given column headers, columns sized to their
// headers and the last one stretched.
QTableWidgetWithCopyPaste *makeDataTable(const char *objectName, int rows, const QStringList &headers,
                                         QWidget *parent);
// Appends count empty rows.
void addTableRows(QTableWidget *table, int count);
// The edit triggers of a model table: edit on change of the current item
// when enabled, no editing when locked.
void setTableEditable(QAbstractItemView *table, bool enable);
// Shows the widget when it is hidden and hides it otherwise, judged by its
// own state, not by whether its page is on screen.
void toggleVisible(QWidget *widget);
