#include "ProjectModel.h"

#include "project/TableFiles.h"

#include <QDir>
#include <QFile>

namespace {

// A table file as cell texts; false when the file is missing.
bool readCells(const QString &path, StringMatrix &cells)
{
    TableCells table;
    if (!readTable(path, table))
        return false;
    cells = tableStringMatrix(table);
    return true;
}

} // namespace

QString readTextFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return QString();
    return QString::fromUtf8(file.readAll());
}

QVector<double> ProjectModel::parametersOf(const QVector<double> &x) const
{
    return applyTransformation(g, system.parameterNames, x);
}

ProjectModel loadProjectModel(const QString &folder)
{
    ProjectModel model;
    model.folder = folder;
    const QString dir = folder + "/model/";
    auto missing = [&model](const QString &name) {
        model.errors << QStringLiteral("Missing model file: model/%1").arg(name);
    };

    const QString odeText = readTextFile(dir + "ODE_expression.txt");
    if (odeText.isNull()) {
        missing("ODE_expression.txt");
        return model;
    }
    model.system = OdeSystemText(odeText, readTextFile(dir + "ODE_auxiliary_function_expression.txt"));
    model.system.parseOdeSystem();
    model.errors << model.system.errors;
    const QStringList &names = model.system.parameterNames;

    StringMatrix specCells;
    if (!readCells(dir + "parameter_specifications.csv", specCells)) {
        missing("parameter_specifications.csv");
        return model;
    }
    model.parameterRows = readParameterSpecification(specCells);
    const QStringList specErrors = checkParameterSpecification(names, model.parameterRows);
    if (!specErrors.isEmpty()) {
        model.errors << specErrors << parameterSpecificationRefusal();
        return model;
    }
    model.unfixedParameters = unfixedParameterIndices(model.parameterRows);
    model.searchVariableCount = model.unfixedParameters.size();

    const TransformationText generated = generateTransformation(names, model.parameterRows);
    model.gText = readTextFile(dir + "reparaDefinition.txt");
    if (model.gText.trimmed().isEmpty())
        model.gText = generated.g;
    model.gInverseText = readTextFile(dir + "reparaInverse.txt");
    if (model.gInverseText.trimmed().isEmpty())
        model.gInverseText = generated.gInverse;
    model.g = parseTransformation(model.gText, names, model.searchVariableCount);
    model.gInverse = parseInverseTransformation(model.gInverseText, names, model.searchVariableCount);
    model.errors << model.g.errors << model.gInverse.errors;

    for (const ParameterSpecificationRow &row : qAsConst(model.parameterRows))
        model.referenceParameters << (row.domainLower + row.domainUpper) * 0.5;

    StringMatrix doseCells;
    if (!readCells(dir + "dose_events.txt", doseCells)) {
        missing("dose_events.txt");
    } else {
        const DoseTableResult doses =
                readDoseTable(doseCells, DoseTable::Estimation, model.system, model.referenceParameters);
        model.doseEvents = doses.events;
        model.errors << doses.errors;
    }

    StringMatrix observationCells;
    if (!readCells(dir + "observations.txt", observationCells)) {
        missing("observations.txt");
    } else {
        const ObservationTableResult observations =
                readObservationTable(observationCells, model.system, model.referenceParameters);
        model.observations = observations.events;
        model.errors << observations.errors;
        for (const ObservationEvent &event : qAsConst(model.observations))
            model.observedValues << event.observedValue;
        if (model.observations.isEmpty())
            model.errors << QStringLiteral("The observation table holds no observations.");
    }

    if (QFile::exists(dir + "initial_cluster.txt")) {
        model.initialCluster = readDoubleMatrix(dir + "initial_cluster.txt");
        if (const auto wrong = checkImportedClusterColumns(model.initialCluster, model.searchVariableCount))
            model.errors << wrong->text;
    }
    return model;
}
