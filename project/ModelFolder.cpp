#include "project/ModelFolder.h"

#include "project/AtomicFile.h"
#include "project/ScriptExport.h"
#include "project/TableFiles.h"

#include <QDateTime>
#include <QDir>
#include <QFile>

namespace {

IntMatrix dependencyStructure(const OdeSystemText &system)
{
    IntMatrix structure;
    for (const QVector<int> &row : system.dependencyMatrix)
        structure << QVector<qint32>(row.begin(), row.end());
    return structure;
}

} // namespace

DoubleMatrix domainBoundsMatrix(const QVector<ParameterSpecificationRow> &rows)
{
    DoubleMatrix bounds(2);
    for (const ParameterSpecificationRow &row : rows) {
        bounds[0] << row.domainLower;
        bounds[1] << row.domainUpper;
    }
    return bounds;
}

bool saveModelFolder(const QString &folder, const ProjectInputs &inputs, const ProjectModel &model)
{
    QDir(folder).mkpath(QStringLiteral("compResult"));
    QDir(folder).mkpath(QStringLiteral("model"));
    const QString dir = folder + QStringLiteral("/model/");
    const QStringList &parameterNames = model.system.parameterNames;

    if (!writeTextAtomically(dir + "ODE_expression.txt", inputs.odeText))
        return false;
    writeTable(dir + "parameter_specifications.csv", inputs.parameterSpecification);
    writeDoubleMatrix(dir + "x_ul.csv", domainBoundsMatrix(readParameterSpecification(
                                                tableStringMatrix(inputs.parameterSpecification))));
    if (!writeTextAtomically(dir + "ODE_auxiliary_function_expression.txt", inputs.auxiliaryText) ||
        !writeTextAtomically(dir + "parameterNames.txt", parameterNames.join(QLatin1Char('\n'))) ||
        !writeTextAtomically(dir + "reparaDefinition.txt", inputs.gText) ||
        !writeTextAtomically(dir + "reparaInverse.txt", inputs.gInverseText) ||
        !writeTextAtomically(dir + "variableNames.txt",
                             model.system.stateVariableNames.join(QLatin1Char('\n'))))
        return false;
    exportScripts(folder, model);
    writeTable(dir + "initial_cluster.txt", inputs.initialCluster);
    writeTable(dir + "dose_events.txt", inputs.doseEvents);
    writeTable(dir + "observations.txt", inputs.observations);
    writeTable(dir + "simulationParameters.csv", inputs.simulationParameters);
    writeTable(dir + "simulationDoseEvents.csv", inputs.simulationDoseEvents);
    if (!writeTextAtomically(dir + "simulationTimePoints.txt", inputs.simulationTimePoints))
        return false;
    writeIntMatrix(dir + "ODE_RHS_Jacobian_Structure.csv", dependencyStructure(model.system));
    copyModelToHistory(folder);
    return true;
}

QString copyModelToHistory(const QString &folder)
{
    const QString stamp =
            QDateTime::currentDateTimeUtc().toString().split(QLatin1Char(':')).join(QLatin1Char('_'));
    const QString target = folder + QStringLiteral("/history/model ") + stamp;
    QDir().mkpath(target);
    for (const char *name :
         {"ODE_expression.txt", "ODE_auxiliary_function_expression.txt", "reparaDefinition.txt",
          "reparaInverse.txt", "initial_cluster.txt", "parameter_specifications.csv", "dose_events.txt",
          "observations.txt", "rscript_compartmentDiagram.R"})
        QFile::copy(folder + QStringLiteral("/model/") + name, target + QLatin1Char('/') + name);
    return target;
}
