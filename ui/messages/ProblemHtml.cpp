#include "ui/messages/ProblemHtml.h"

namespace {

// The text escaped (messages speak of "d<variable name>dt"), its lines
// separated by "<br>".
QString withLineBreaks(const QString &text)
{
    return text.toHtmlEscaped().replace(QLatin1Char('\n'), QLatin1String("<br>"));
}

} // namespace

QString problemHtml(const Problem &problem)
{
    return QStringLiteral("<font color=red> ") + withLineBreaks(problem.text) + QStringLiteral("</font>");
}

QString problemsHtml(const Problems &problems)
{
    QStringList fragments;
    for (const Problem &problem : problems)
        fragments << problemHtml(problem);
    return fragments.join(QLatin1String("<br>"));
}

QString redBlockHtml(const QStringList &messages)
{
    if (messages.isEmpty())
        return QString();
    return QStringLiteral("<font color=red>") + withLineBreaks(messages.join(QLatin1Char('\n'))) +
           QStringLiteral("</font>");
}

QString noteHtml(const QString &note)
{
    return QStringLiteral("<font color=blue>") + note + QStringLiteral("</font>");
}
