#pragma once

#include "model/Problem.h"

#include <QString>
#include <QStringList>

// The error pane's rich-text forms of the system's messages.

// One problem as its red fragment: "<font color=red> ", the text with its
// line breaks as "<br>", "</font>".
QString problemHtml(const Problem &problem);
// Several problems, "<br>" between the fragments.
QString problemsHtml(const Problems &problems);
// Message lists shown as one red block, each list's messages joined with line
// breaks: "<font color=red>", the lists, "</font>". Empty when every list is.
QString redBlockHtml(const QStringList &messages);
// An informational note in blue.
QString noteHtml(const QString &note);
