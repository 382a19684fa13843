#include "BatchCommon.h"

#include "project/ScriptExport.h"

#include <cstdio>

int exportCommand(const QString &folder, const QStringList &arguments)
{
    const OptionReader options(arguments, {}, {});
    const ProjectModel project = loadCheckedProject(folder);
    const QStringList failed = exportScripts(folder, project);
    if (!failed.isEmpty())
        throw InputError(failed.join(QLatin1Char('\n')));
    for (const char *name : {"rscript_ODE.R", "rscript_translationFunctions.R", "python_ODE.py",
                             "matlab_ODE.m", "rscript_compartmentDiagram.R"})
        std::printf("%s/model/%s\n", qPrintable(folder), name);
    return 0;
}
