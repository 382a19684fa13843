#include "model/Problem.h"

QStringList problemTexts(const Problems &problems)
{
    QStringList texts;
    for (const Problem &problem : problems)
        texts << problem.text;
    return texts;
}

Problems problemsFrom(ProblemSource source, const QStringList &texts)
{
    Problems problems;
    for (const QString &text : texts)
        problems.append({source, -1, -1, text});
    return problems;
}
