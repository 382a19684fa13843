#include "PolishSummary.h"

#include "project/ResultStore.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

#include <cmath>

namespace {

QString exact(double v)
{
    return QString::number(v, 'g', 16);
}

QString row(const QString &label, const QString &value)
{
    return label + QLatin1Char(',') + value;
}

QStringList parameterRows(const PolishSummaryBlock &block)
{
    QStringList header{QStringLiteral("Parameter"), QStringLiteral("Estimate"),
                       QStringLiteral("Standard error")};
    for (const QString &name : block.parameterNames)
        header << QStringLiteral("Correlation with ") + name;
    QStringList rows{header.join(QLatin1Char(','))};
    for (int a = 0; a < block.parameterNames.size(); ++a) {
        const double se = block.standardErrors.value(a, std::nan(""));
        QStringList cells{block.parameterNames[a], exact(block.estimates.value(a, std::nan(""))),
                          std::isnan(se) ? QStringLiteral("not identifiable") : exact(se)};
        for (int b = 0; b < block.parameterNames.size(); ++b) {
            const double r = block.correlation.value(a).value(b, std::nan(""));
            cells << (std::isnan(r) ? QStringLiteral("NaN") : QString::number(r, 'g', 6));
        }
        rows << cells.join(QLatin1Char(','));
    }
    return rows;
}

} // namespace

QString polishSummaryFileName()
{
    return QStringLiteral("polish_summary.csv");
}

QStringList polishSummaryLines(const QVector<PolishSummaryBlock> &blocks)
{
    QStringList lines;
    for (const PolishSummaryBlock &block : blocks) {
        if (!lines.isEmpty())
            lines << QString();
        lines << row(QStringLiteral("Minimiser"), QString::number(block.minimiser))
              << row(QStringLiteral("Group"), QString::number(block.group))
              << row(QStringLiteral("Points in group"), QString::number(block.groupSize))
              << row(QStringLiteral("Start SSR"), exact(block.startSsr))
              << row(QStringLiteral("SSR"), exact(block.ssr))
              << row(QStringLiteral("Iterations"), QString::number(block.iterations))
              << row(QStringLiteral("Stop"), block.stopReason)
              << row(QStringLiteral("Degrees of freedom"), QString::number(block.degreesOfFreedom))
              << row(QStringLiteral("Condition number of J"), QString::number(block.conditionNumber, 'g', 6));
        lines << parameterRows(block);
    }
    return lines;
}

void writePolishSummary(const QString &projectFolder, const QVector<PolishSummaryBlock> &blocks)
{
    const QString path = resultFilePath(projectFolder, polishSummaryFileName());
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text)) {
        qDebug() << "Error, unable to save" << path;
        return;
    }
    QTextStream out(&file);
    for (const QString &line : polishSummaryLines(blocks))
        out << line << '\n';
}
