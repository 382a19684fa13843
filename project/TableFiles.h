#pragma once

#include "project/TableCells.h"

class AtomicFolder;

// Comma-separated table files. Cells are separated by "," and rows by "\n";
// there is no quoting, so a cell text holding a comma reads back as two cells.
// The writers never report failure to the caller: a file that cannot be opened
// gives one line on the debug log and nothing else. The readers never fail
// loudly either: a missing file leaves the target as it was or gives an empty
// matrix.

// Lines split on "\n" (empty lines are skipped), cells on ","; every cell is
// read with lenientCellNumber.
DoubleMatrix textToDoubleMatrix(const QString &text);

// One line per row, values joined by "," and each line ended by "\n"; doubles
// with 16 significant digits (see NumberText.h). A row of length zero writes
// only "\n". The file is replaced at once (see AtomicFile.h): a reader sees
// the old file or the whole new one.
// Debug line on failure: "Error, unable to save".
void writeDoubleMatrix(const QString &path, const DoubleMatrix &matrix);
void writeIntMatrix(const QString &path, const IntMatrix &matrix);
// The same for a file of a folder that receives many (see AtomicFile.h).
void writeDoubleMatrix(const AtomicFolder &folder, const QString &fileName, const DoubleMatrix &matrix);
void writeIntMatrix(const AtomicFolder &folder, const QString &fileName, const IntMatrix &matrix);

// Lines split on "," keeping empty parts, every field read with
// lenientCellNumber (so an empty field is 0). Empty for a missing file.
DoubleMatrix readDoubleMatrix(const QString &path);

// The table text. Cells joined by ","; every row but the last ends with "\n",
// the last with nothing, so the text never ends with a line end. A cell
// without item is written as " " in every row but the last; in the last row
// it is written as nothing. Readers rely on both: " " reads back as empty.
QString tableText(const TableCells &table);

// As tableText, with a first line " ," followed by the horizontal header
// texts joined by "," and "\n", and every row preceded by its vertical header
// text and ",". A missing header item (std::nullopt or a list too short for
// the table) is written as " ".
QString tableTextWithHeaders(const TableCells &table, const QVector<TableCells::Cell> &horizontalHeaders,
                             const QVector<TableCells::Cell> &verticalHeaders);

// Debug line on failure: "Error, unable to open".
void writeTable(const QString &path, const TableCells &table);
void writeTableWithHeaders(const QString &path, const TableCells &table,
                           const QVector<TableCells::Cell> &horizontalHeaders,
                           const QVector<TableCells::Cell> &verticalHeaders);

// Fills the table from table text: the row count becomes the number of lines
// (nothing more happens without lines), the column count the number of
// fields of the last line; a longer line widens the table (rows filled before
// have no items in the new columns) and a column beyond a line's last field
// gets "NA".
void fillTableFromText(TableCells &table, const QStringList &lines);

// Reads the file's lines into the table as fillTableFromText does; returns
// false and leaves the table unchanged when the file is missing or cannot be
// opened.
bool readTable(const QString &path, TableCells &table);

// The labelled-column form of the result views' CSV files: a first line of an
// empty label cell followed by the column names, then one line per row label
// position (as many as the longest column) made of the row label followed by
// the value of every column at that position. Numbers in format "g" with 6
// significant digits; a column shorter than the longest gives empty cells;
// missing row labels are empty. Every line, the last included, ends with "\n".
QString labelledColumnsText(const QStringList &columnNames, const DoubleMatrix &columns,
                            const QStringList &rowLabels = QStringList());
// Debug line on failure: "Error, unable to save".
void writeLabelledColumns(const QString &path, const QStringList &columnNames, const DoubleMatrix &columns,
                          const QStringList &rowLabels = QStringList());
