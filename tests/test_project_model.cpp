#include "project/ModelFolder.h"
#include "project/ProjectModel.h"
#include "project/ScriptExport.h"
#include "project/TableFiles.h"

#include <QtTest>

#include <cmath>

// A project is built by one pipeline, whether its texts and cells come from
// the window or from the model folder.
class TestProjectModel : public QObject {
    Q_OBJECT

private:
    // Cells as the window holds them: every cell an item with its text.
    static TableCells windowCells(const TableCells &cells)
    {
        TableCells copy;
        fillTableCells(copy, tableStringMatrix(cells));
        return copy;
    }
    static ProjectInputs windowInputs(const ProjectInputs &folder)
    {
        ProjectInputs inputs = folder;
        inputs.parameterSpecification = windowCells(folder.parameterSpecification);
        inputs.doseEvents = windowCells(folder.doseEvents);
        inputs.observations = windowCells(folder.observations);
        inputs.initialCluster = windowCells(folder.initialCluster);
        return inputs;
    }
    static bool sameNumbers(const QVector<double> &a, const QVector<double> &b)
    {
        if (a.size() != b.size())
            return false;
        for (int i = 0; i < a.size(); ++i)
            if (!(a[i] == b[i] || (std::isnan(a[i]) && std::isnan(b[i]))))
                return false;
        return true;
    }
    static void compareModels(const ProjectModel &a, const ProjectModel &b)
    {
        QCOMPARE(a.system.stateVariableNames, b.system.stateVariableNames);
        QCOMPARE(a.system.parameterNames, b.system.parameterNames);
        QCOMPARE(a.system.rightHandSides, b.system.rightHandSides);
        QCOMPARE(a.parameterRows.size(), b.parameterRows.size());
        for (int j = 0; j < a.parameterRows.size(); ++j) {
            const ParameterSpecificationRow &r = a.parameterRows[j], &s = b.parameterRows[j];
            QVERIFY(sameNumbers({r.domainLower, r.domainUpper, r.theoreticalLower, r.theoreticalUpper},
                                {s.domainLower, s.domainUpper, s.theoreticalLower, s.theoreticalUpper}));
        }
        QCOMPARE(a.gText, b.gText);
        QCOMPARE(a.gInverseText, b.gInverseText);
        QCOMPARE(a.doseEvents.size(), b.doseEvents.size());
        for (int d = 0; d < a.doseEvents.size(); ++d) {
            const DoseEvent &e = a.doseEvents[d], &f = b.doseEvents[d];
            QVERIFY(sameNumbers({e.time, e.dosage, e.duration}, {f.time, f.dosage, f.duration}));
            QCOMPARE(e.compartmentIndex, f.compartmentIndex);
        }
        QVector<double> timesA, timesB;
        for (const ObservationEvent &o : a.observations)
            timesA << o.time;
        for (const ObservationEvent &o : b.observations)
            timesB << o.time;
        QVERIFY(sameNumbers(timesA, timesB));
        QVERIFY(sameNumbers(a.observedValues, b.observedValues));
        QCOMPARE(a.initialCluster, b.initialCluster);
        QCOMPARE(a.problems, b.problems);
    }
    // Saves the window's inputs as a folder, loads it back and compares.
    static ProjectModel roundTrip(const ProjectInputs &inputs, const QString &folder)
    {
        const ProjectModel fromWindow = buildProjectModel(inputs);
        saveModelFolder(folder, inputs, fromWindow);
        const ProjectModel fromFolder = loadProjectModel(folder);
        compareModels(fromWindow, fromFolder);
        return fromWindow;
    }

private slots:
    void examplesBuildAlikeFromCellsAndFolder_data();
    void examplesBuildAlikeFromCellsAndFolder();
    void brokenInputsGiveTheSameProblemsEitherWay();
    void missingFilesAreReportedByName();
    void saveWritesTheModelFilesAndAHistoryCopy();
};

void TestProjectModel::examplesBuildAlikeFromCellsAndFolder_data()
{
    QTest::addColumn<QString>("example");
    QTest::newRow("oral absorption") << "oral-absorption";
    QTest::newRow("pbpk") << "pbpk";
}

void TestProjectModel::examplesBuildAlikeFromCellsAndFolder()
{
    QFETCH(QString, example);
    const ProjectInputs read = readProjectInputs(AMBREL_EXAMPLES_DIR "/" + example);
    QVERIFY(read.missingFiles.isEmpty());
    QTemporaryDir dir;
    ProjectInputs inputs = windowInputs(read);
    const int p = buildProjectModel(read).searchVariableCount;
    fillTableCells(inputs.initialCluster, DoubleMatrix{QVector<double>(p, 0.25), QVector<double>(p, -1.5)});
    const ProjectModel model = roundTrip(inputs, dir.path());
    QVERIFY2(model.isValid(), qPrintable(problemTexts(model.problems).join('\n')));
    QCOMPARE(model.initialCluster.size(), 2);
}

void TestProjectModel::brokenInputsGiveTheSameProblemsEitherWay()
{
    QTemporaryDir dir;
    ProjectInputs inputs = windowInputs(readProjectInputs(AMBREL_EXAMPLES_DIR "/oral-absorption"));
    inputs.doseEvents.setCell(0, 1, "gut");    // no such compartment
    inputs.observations.setCell(2, 2, "abc");  // not a number
    inputs.observations.setCell(3, 0, "2*ka"); // an expression: a note, no problem
    const ProjectModel model = roundTrip(inputs, dir.path());
    QCOMPARE(model.problems.size(), 2);
    const Problem &dose = model.problems[0];
    QCOMPARE(dose.source, ProblemSource::DoseTable);
    QCOMPARE(dose.row, 0);
    QCOMPARE(dose.column, 1);
    QCOMPARE(dose.text, QStringLiteral("Error in Dosing Table (1th row Compartment):\nDosing compartment "
                                       "not found.  It should be selected from the following: Ag  Ac"));
    QCOMPARE(model.problems[1].text,
             QStringLiteral(
                     "Error in Observation Table (3th row Value):\n Expression could not be understood."));

    // An unusable parameter specification stops the build before the tables.
    inputs.parameterSpecification.setCell(1, 1, "1");
    const ProjectModel refused = roundTrip(inputs, dir.path());
    QCOMPARE(problemTexts(refused.problems),
             (QStringList{
                     "Parameter V's lowerbound of the domain of interest is higher than its upperbound.",
                     "Parameters are not specified correctly, Ambrel method cannot be run. Check Step 3."}));
    QVERIFY(refused.doseEvents.isEmpty());
}

void TestProjectModel::missingFilesAreReportedByName()
{
    QTemporaryDir dir;
    QDir().mkpath(dir.path() + "/model");
    QCOMPARE(problemTexts(loadProjectModel(dir.path()).problems),
             QStringList{"Missing model file: model/ODE_expression.txt"});
    QFile::copy(AMBREL_EXAMPLES_DIR "/oral-absorption/model/ODE_expression.txt",
                dir.path() + "/model/ODE_expression.txt");
    QFile::copy(AMBREL_EXAMPLES_DIR "/oral-absorption/model/parameter_specifications.csv",
                dir.path() + "/model/parameter_specifications.csv");
    QCOMPARE(problemTexts(loadProjectModel(dir.path()).problems),
             (QStringList{"Missing model file: model/dose_events.txt",
                          "Missing model file: model/observations.txt"}));
}

void TestProjectModel::saveWritesTheModelFilesAndAHistoryCopy()
{
    QTemporaryDir dir;
    const ProjectInputs inputs = readProjectInputs(AMBREL_EXAMPLES_DIR "/oral-absorption");
    QVERIFY(saveModelFolder(dir.path(), inputs, buildProjectModel(inputs)));
    const QString model = dir.path() + "/model/";
    QCOMPARE(readTextFile(model + "parameterNames.txt"), QStringLiteral("CL\nV\nka"));
    QCOMPARE(readTextFile(model + "variableNames.txt"), QStringLiteral("Ag\nAc"));
    QCOMPARE(readDoubleMatrix(model + "x_ul.csv"), (DoubleMatrix{{0.5, 5, 0.1}, {20, 100, 5}}));
    for (const QString &script : scriptFileNames())
        QVERIFY2(QFile::exists(model + script), qPrintable(script));
    QVERIFY(QDir(dir.path() + "/compResult").exists());

    const QStringList history = QDir(dir.path() + "/history").entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    QCOMPARE(history.size(), 1);
    QVERIFY(history.first().startsWith("model ") && !history.first().contains(':'));
    // initial_cluster.txt is written even when empty, so all nine are copied.
    QCOMPARE(QDir(dir.path() + "/history/" + history.first()).entryList(QDir::Files).size(), 9);

    // A folder that cannot be written ends the save at its first file.
    QVERIFY(!saveModelFolder(dir.path() + "/model/ODE_expression.txt/inside", inputs,
                             buildProjectModel(inputs)));
}

QTEST_GUILESS_MAIN(TestProjectModel)
#include "test_project_model.moc"
