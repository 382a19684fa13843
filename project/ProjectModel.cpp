#include "ProjectModel.h"

#include "project/TableFiles.h"

#include <QFile>
#include <QTextCodec>

namespace {

// The files the build cannot do without. A missing initial cluster or
// transformation text is not a problem.
const char *const kOdeFile = "ODE_expression.txt";
const char *const kSpecificationFile = "parameter_specifications.csv";
const char *const kDoseFile = "dose_events.txt";
const char *const kObservationFile = "observations.txt";

void addProblem(ProjectModel &model, ProblemSource source, const QString &text)
{
    model.problems.append({source, -1, -1, text});
}

bool reportMissing(ProjectModel &model, const ProjectInputs &inputs, const char *file)
{
    if (!inputs.missingFiles.contains(QLatin1String(file)))
        return false;
    addProblem(model, ProblemSource::ProjectFolder, QStringLiteral("Missing model file: model/%1").arg(file));
    return true;
}

// The parameter specification and the transformation; false when the
// specification cannot be used, so that nothing depends on it.
bool buildParameters(ProjectModel &model, const ProjectInputs &inputs)
{
    const QStringList &names = model.system.parameterNames;
    model.parameterRows = readParameterSpecification(tableStringMatrix(inputs.parameterSpecification));
    const QStringList specErrors = checkParameterSpecification(names, model.parameterRows);
    if (!specErrors.isEmpty()) {
        model.problems << problemsFrom(ProblemSource::ParameterSpecification,
                                       specErrors + QStringList{parameterSpecificationRefusal()});
        return false;
    }
    model.unfixedParameters = unfixedParameterIndices(model.parameterRows);
    model.searchVariableCount = model.unfixedParameters.size();

    const TransformationText generated = generateTransformation(names, model.parameterRows);
    model.gText = inputs.gText.trimmed().isEmpty() ? generated.g : inputs.gText;
    model.gInverseText = inputs.gInverseText.trimmed().isEmpty() ? generated.gInverse : inputs.gInverseText;
    model.g = parseTransformation(model.gText, names, model.searchVariableCount);
    model.gInverse = parseInverseTransformation(model.gInverseText, names, model.searchVariableCount);
    model.problems << problemsFrom(ProblemSource::Transformation, model.g.errors)
                   << problemsFrom(ProblemSource::InverseTransformation, model.gInverse.errors);

    for (const ParameterSpecificationRow &row : qAsConst(model.parameterRows))
        model.referenceParameters << (row.domainLower + row.domainUpper) * 0.5;
    return true;
}

// The evaluation refuses a negative infusion duration (other than the
// set-value code); finding it here stops a run before it starts instead of
// running without the dose.
Problems negativeDurationProblems(const DoseTableResult &doses)
{
    Problems problems;
    for (int k = 0; k < doses.events.size(); ++k) {
        const double d = doses.events[k].duration;
        if (d < 0 && d != DoseDuration::SetValue)
            problems.append({ProblemSource::DoseTable, doses.rowOfRecord.value(k), int(DoseColumn::Duration),
                             QStringLiteral("Error on %1th dose event: Infusion administration duration "
                                            "cannot be less than 0.")
                                     .arg(k + 1)});
    }
    return problems;
}

void buildEvents(ProjectModel &model, const ProjectInputs &inputs)
{
    if (!reportMissing(model, inputs, kDoseFile)) {
        const DoseTableResult doses =
                readDoseTable(tableStringMatrix(inputs.doseEvents), DoseTable::Estimation, model.system,
                              model.referenceParameters);
        model.doseEvents = doses.events;
        model.problems << doses.problems;
        model.problems << negativeDurationProblems(doses);
    }
    if (!reportMissing(model, inputs, kObservationFile)) {
        const ObservationTableResult observations = readObservationTable(
                tableStringMatrix(inputs.observations), model.system, model.referenceParameters);
        model.observations = observations.events;
        model.problems << observations.problems;
        for (const ObservationEvent &event : qAsConst(model.observations))
            model.observedValues << event.observedValue;
        if (model.observations.isEmpty())
            addProblem(model, ProblemSource::ObservationTable,
                       QStringLiteral("The observation table holds no observations."));
    }
}

void buildInitialCluster(ProjectModel &model, const ProjectInputs &inputs)
{
    if (inputs.initialCluster.rowCount() == 0)
        return;
    model.initialCluster = tableDoubleMatrix(inputs.initialCluster);
    if (const auto wrong = checkImportedClusterColumns(model.initialCluster, model.searchVariableCount))
        addProblem(model, ProblemSource::InitialCluster, wrong->text);
}

// A table file as cells; a missing file is recorded and gives an empty table.
TableCells readTableFile(const QString &dir, const char *name, QStringList &missingFiles)
{
    TableCells table;
    if (!readTable(dir + name, table))
        missingFiles << QLatin1String(name);
    return table;
}

} // namespace

QString readTextFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return QString();
    // An existing but empty file gives an empty, not a null, text.
    return QString::fromUtf8(file.readAll()) + QLatin1String("");
}

bool isPlainText(const QByteArray &bytes)
{
    if (bytes.contains('\0'))
        return false;
    QTextCodec::ConverterState state;
    QTextCodec::codecForName("UTF-8")->toUnicode(bytes.constData(), bytes.size(), &state);
    return state.invalidChars == 0;
}

QVector<double> ProjectModel::parametersOf(const QVector<double> &x) const
{
    return applyTransformation(g, system.parameterNames, x);
}

ProjectModel buildProjectModel(const ProjectInputs &inputs)
{
    ProjectModel model;
    for (const QString &file : inputs.unreadableFiles)
        addProblem(model, ProblemSource::ProjectFolder,
                   QStringLiteral("model/%1 is not a text file: it holds NUL bytes or bytes that are not "
                                  "UTF-8 text.")
                           .arg(file));
    if (!inputs.unreadableFiles.isEmpty() || reportMissing(model, inputs, kOdeFile))
        return model;
    model.system = OdeSystemText(inputs.odeText, inputs.auxiliaryText);
    model.system.parseOdeSystem();
    model.problems << problemsFrom(ProblemSource::OdeSystem, model.system.errors);
    if (model.system.errors.isEmpty() && model.system.stateVariableNames.isEmpty())
        addProblem(model, ProblemSource::OdeSystem,
                   QStringLiteral("The ODE system holds no equations: write one line per state variable, "
                                  "e.g. dAdt = -k*A."));

    if (reportMissing(model, inputs, kSpecificationFile) || !buildParameters(model, inputs))
        return model;
    buildEvents(model, inputs);
    buildInitialCluster(model, inputs);
    return model;
}

ProjectInputs readProjectInputs(const QString &folder)
{
    ProjectInputs inputs;
    const QString dir = folder + "/model/";
    for (const char *name :
         {kOdeFile, "ODE_auxiliary_function_expression.txt", kSpecificationFile, "reparaDefinition.txt",
          "reparaInverse.txt", kDoseFile, kObservationFile, "initial_cluster.txt"}) {
        QFile file(dir + name);
        if (file.open(QIODevice::ReadOnly) && !isPlainText(file.readAll()))
            inputs.unreadableFiles << QLatin1String(name);
    }
    inputs.odeText = readTextFile(dir + kOdeFile);
    if (inputs.odeText.isNull())
        inputs.missingFiles << QLatin1String(kOdeFile);
    inputs.auxiliaryText = readTextFile(dir + "ODE_auxiliary_function_expression.txt");
    inputs.parameterSpecification = readTableFile(dir, kSpecificationFile, inputs.missingFiles);
    inputs.gText = readTextFile(dir + "reparaDefinition.txt");
    inputs.gInverseText = readTextFile(dir + "reparaInverse.txt");
    inputs.doseEvents = readTableFile(dir, kDoseFile, inputs.missingFiles);
    inputs.observations = readTableFile(dir, kObservationFile, inputs.missingFiles);
    readTable(dir + "initial_cluster.txt", inputs.initialCluster);
    return inputs;
}

ProjectModel loadProjectModel(const QString &folder)
{
    ProjectModel model = buildProjectModel(readProjectInputs(folder));
    model.folder = folder;
    return model;
}
