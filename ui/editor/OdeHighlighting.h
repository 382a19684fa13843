#pragma once

#include <QString>
#include <QStringList>

// The rich text the Step1 editors show, built from the plain model text and
// the names of the parsed system. Pure text functions, so that they can be
// tested and timed without a window.

// The model text coloured: "<font>" and the text, in which every occurrence of
// a state variable becomes "<b>" name "</b>", then every occurrence of a
// parameter (except "b") "<i>" name "</i>", every line break "</font><br>" and
// every ";" "<font color=silver>;", so that a comment is grey to the end of
// its line. Names match as plain substrings (k inside kA is marked too),
// longer names first, but never inside the tags inserted before them; "&", "<" and ">" of the text are
// escaped, the line break closes every grey font its line opened, and blanks
// are kept as typed, so the editor's plain text stays the typed text.
QString highlightedModelHtml(const QString &text, const QStringList &stateVariables,
                             const QStringList &parameters);

// Find and replace in the ODE text: blanks removed, every occurrence of
// findText replaced by the replacement between the two marks below, and one
// blank put on each side of every "+", "-", "*" and "/". An empty findText
// changes nothing but the blanks.
QString markReplacements(const QString &text, const QString &findText, const QString &replacement);
// Where a replacement starts and ends in the text markReplacements returns.
constexpr QChar replacementStart = QChar(0xFDD0);
constexpr QChar replacementEnd = QChar(0xFDD1);
// The marked text as the editor holds it, without the marks.
QString withoutMarks(QString marked);
// The marked text as rich text, each replacement in the given colour.
QString markedTextHtml(const QString &marked, const QString &colour);

// The name lists of Step1: "=== Variables ===", the state variables,
// "=== Parameters ===", the parameters.
QString variablesHeader();
QString parametersHeader();
QStringList nameListEntries(const QStringList &stateVariables, const QStringList &parameters);
// A name that choosing it copies or finds: neither a header nor empty.
bool isNameEntry(const QString &entry);

// The names of first, then those of second that are not in first.
QStringList mergedNames(const QStringList &first, const QStringList &second);
