#include "BatchCommon.h"

#include <QDir>
#include <QRegularExpression>

#include <cstdio>

OptionReader::OptionReader(const QStringList &arguments, const QStringList &valueOptions,
                           const QStringList &flagOptions)
{
    for (int i = 0; i < arguments.size(); ++i) {
        const QString &argument = arguments[i];
        if (flagOptions.contains(argument)) {
            m_flags << argument;
        } else if (valueOptions.contains(argument)) {
            if (i + 1 >= arguments.size())
                throw InputError(QStringLiteral("Option %1 needs a value.").arg(argument));
            m_values.insert(argument, arguments[++i]);
        } else {
            throw InputError(QStringLiteral("Unknown option: %1").arg(argument));
        }
    }
}

int OptionReader::intValue(const QString &name, int fallback, int minimum) const
{
    if (!m_values.contains(name))
        return fallback;
    bool ok = false;
    const int value = m_values.value(name).toInt(&ok);
    if (!ok || value < minimum)
        throw InputError(QStringLiteral("Option %1 needs a whole number of at least %2, not \"%3\".")
                                 .arg(name)
                                 .arg(minimum)
                                 .arg(m_values.value(name)));
    return value;
}

double OptionReader::doubleValue(const QString &name, double fallback) const
{
    if (!m_values.contains(name))
        return fallback;
    bool ok = false;
    const double value = m_values.value(name).toDouble(&ok);
    if (!ok || !(value > 0))
        throw InputError(QStringLiteral("Option %1 needs a positive number, not \"%2\".")
                                 .arg(name, m_values.value(name)));
    return value;
}

ProjectModel loadCheckedProject(const QString &folder)
{
    if (!QDir(folder).exists())
        throw InputError(QStringLiteral("No such project folder: %1").arg(folder));
    ProjectModel project = loadProjectModel(folder);
    if (!project.isValid())
        throw InputError(problemTexts(project.problems).join(QLatin1Char('\n')));
    for (const QString &warning : project.system.warnings)
        std::fprintf(stderr, "%s\n", qPrintable(warning));
    return project;
}
