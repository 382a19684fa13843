// The exported scripts: the translation of formulas, the decisive lines of
// each script, and runs of the scripts in R, Python and Octave against this
// program's Stage 2 outputs.
#include "ode/model_ode.h"
#include "project/ScriptExport.h"
#include "project/TableFiles.h"
#include "test_support.h"

#include <QtTest>

namespace {

OdeSystemText parsedSystem(const QString &ode)
{
    OdeSystemText system(ode, QString());
    system.parseOdeSystem();
    return system;
}

// Michaelis-Menten elimination from A into B, first-order transfer from B into
// C: a non-linear edge A->B, a linear edge B->C, nothing towards A.
const char *kSmallModel = "dAdt = -Vm*A/(Km+A)\ndBdt = Vm*A/(Km+A) - k*B\ndCdt = k*B";
const ScriptTransformation kSmallG{{"Km", "Vm", "k"}, {"10^(x1)", "10^(x2)", "5"}, 2};

// Runs program in workingDirectory; false (with a warning) unless it ends
// normally with status 0.
bool run(const QString &program, const QStringList &arguments, const QString &workingDirectory,
         QString *output = nullptr)
{
    QProcess process;
    process.setWorkingDirectory(workingDirectory);
    process.start(program, arguments);
    if (!process.waitForFinished(180000)) {
        process.kill();
        return false;
    }
    if (output)
        *output = QString::fromUtf8(process.readAllStandardOutput());
    if (process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        return true;
    qWarning().noquote() << program << "failed:" << process.readAllStandardError();
    return false;
}

// Replaces before by after in the file; false when before is not there.
bool patch(const QString &path, const QString &before, const QString &after, const QString &appended = {})
{
    QString text = readTextFile(path);
    return text.contains(before) && writeFile(path, text.replace(before, after) + appended);
}

// The oral example with a stored run: iterations 0..2, the best point of the
// last one (row 1) at CL=4, V=40, ka=1.2, a worse point and a failed one.
struct OralProject {
    QTemporaryDir dir;
    QString folder = copyExample(dir, "oral-absorption");
    ProjectModel model = loadProjectModel(folder);
    QVector<double> parameters; // what the scripts should use
    QVector<double> reference;  // this program's Stage 2 outputs at the observations

    OralProject()
    {
        const QVector<double> best = applyInverseTransformation(model.gInverse, 3, {4.0, 40.0, 1.2});
        const DoubleMatrix cluster{{best[0] + 0.3, best[1] + 0.3, best[2] + 0.3}, best, {0.0, 0.0, 0.0}};
        QDir().mkpath(folder + "/compResult");
        for (int k = 0; k < 3; ++k) {
            writeDoubleMatrix(folder + QString("/compResult/X_%1.csv").arg(k), cluster);
            writeDoubleMatrix(folder + QString("/compResult/R_%1.csv").arg(k), {{5.0, 0.01, kNaN}});
        }
        parameters = model.parametersOf(best);
        reference = outputs(stage2States(parameters), parameters);
    }

    DoubleMatrix stage2States(const QVector<double> &p) const
    {
        model_ode ode(model.system, model.doseEvents, model.observations);
        ode.useRosenbrock = 0;
        DoubleMatrix rows;
        for (const std::vector<double> &row : ode.evaluate(p))
            rows << QVector<double>(row.begin(), row.end());
        return rows;
    }

    // The observation expressions evaluated on state rows (one per record).
    QVector<double> outputs(const DoubleMatrix &states, const QVector<double> &p) const
    {
        QVector<double> y;
        for (int r = 0; r < model.observations.size(); ++r)
            y << model.observations[r].variableExpression.evaluate(
                    QVector<double>{model.observations[r].time} + states[r] + p);
        return y;
    }

    QString observationTimes() const
    {
        QStringList times;
        for (const ObservationEvent &o : model.observations)
            times << QString::number(o.time, 'g', 17);
        return times.join(",");
    }
};

void compareOutputs(const QVector<double> &got, const QVector<double> &expected, double tolerance)
{
    QCOMPARE(got.size(), expected.size());
    for (int i = 0; i < got.size(); ++i)
        QVERIFY2(closeTo(got[i], expected[i], tolerance),
                 qPrintable(QString("output %1: script %2, program %3").arg(i).arg(got[i]).arg(expected[i])));
}

} // namespace

class ScriptExportTest : public QObject {
    Q_OBJECT

private slots:
    void translation_data();
    void translation();
    void scriptLines();
    void singleStateBlocks();
    void pbpkCompartmentDiagram();
    void storedPointAndFallback();
    void rScriptMatchesStage2();
    void pythonScriptMatchesStage2();
    void matlabScriptMatchesStage2();
};

void ScriptExportTest::translation_data()
{
    QTest::addColumn<QString>("expression");
    QTest::addColumn<QString>("r");
    QTest::addColumn<QString>("python");
    QTest::addColumn<QString>("matlab");

    QTest::newRow("logarithms, aliases, names containing function names")
            << "EXP(a) + LOG(b) - LOG10(c)*LN(d)+ln(v)*LOGk*EXPo(x)"
            << "exp(a)+log(b)-log10(c)*log(d)+log(v)*LOGk*EXPo(x)"
            << "np.exp(a)+np.log(b)-np.log10(c)*np.log(d)+np.log(v)*LOGk*EXPo(x)"
            << "exp(a)+log(b)-log10(c)*log(d)+log(v)*LOGk*EXPo(x)";
    QTest::newRow("arc functions are not SIN of A") << "ASIN(x)/ACOS(y)-ATAN(z)*SIN(x)"
                                                    << "asin(x)/acos(y)-atan(z)*sin(x)"
                                                    << "np.arcsin(x)/np.arccos(y)-np.arctan(z)*np.sin(x)"
                                                    << "asin(x)/acos(y)-atan(z)*sin(x)";
    QTest::newRow("nested, blanks and slash-n dropped") << "ABS(SIGN(SQRT(COS(TAN(k /n V)))))"
                                                        << "abs(sign(sqrt(cos(tan(kV)))))"
                                                        << "np.abs(np.sign(np.sqrt(np.cos(np.tan(kV)))))"
                                                        << "abs(sign(sqrt(cos(tan(kV)))))";
    QTest::newRow("power chains group right") << "2^3^2-a^b*EXP(x^y^z)/(1+(p)^q^r)"
                                              << "2^3^2-a^b*exp(x^y^z)/(1+(p)^q^r)"
                                              << "2**3**2-a**b*np.exp(x**y**z)/(1+(p)**q**r)"
                                              << "2^(3^2)-a^b*exp(x^(y^z))/(1+(p)^(q^r))";
}

void ScriptExportTest::translation()
{
    QFETCH(QString, expression);
    QFETCH(QString, r);
    QFETCH(QString, python);
    QFETCH(QString, matlab);
    QCOMPARE(translateExpression(expression, ScriptLanguage::R), r);
    QCOMPARE(translateExpression(expression, ScriptLanguage::Python), python);
    QCOMPARE(translateExpression(expression, ScriptLanguage::Matlab), matlab);
}

// The lines a user edits or reads in each script, for a model of three
// states; the interpreter runs below check what the scripts compute.
void ScriptExportTest::scriptLines()
{
    const OdeSystemText system = parsedSystem(kSmallModel);
    QCOMPARE(system.parameterNames, QStringList({"Km", "Vm", "k"}));
    ScriptParameterSource source;
    source.x = {0.5, -1.0};
    const ScriptTexts texts = generateScripts(system, kSmallG, source);
    QVERIFY(texts.rOde.startsWith("library('deSolve')\nsource('rscript_translationFunctions.R')\n\n"));
    QVERIFY(texts.rOde.contains("x_best=c(0.5, -1)\nx1=x_best[1]\nx2=x_best[2]\nKm=10^(x1)\nVm=10^(x2)\nk=5\n"
                                "parameters=c(Km=Km, Vm=Vm, k=k)"));
    QVERIFY(texts.rOde.contains("\ndA=-Vm*A/(Km+A)+infRate_A\ndB=Vm*A/(Km+A)-k*B+infRate_B\n"
                                "dC=k*B+infRate_C\nlist(c(dA, dB, dC))\n"));
    QVERIFY(texts.rOde.contains("infusionRate=c(infRate_A=0, \ninfRate_B=0, \ninfRate_C=0)\n"));
    QVERIFY(texts.rOde.contains("\nstate <- c(A=0,B=0,C=0)\n"));

    QVERIFY(texts.python.contains(
            "def diff_op(y, t,para):\n\tA, B, C = y\n\tKm, Vm, k, infRate_A, infRate_B, "
            "infRate_C = para\n\n\tout_0=-Vm*A/(Km+A)+infRate_A;\n"));
    QVERIFY(texts.python.contains("\n\treturn [out_0, out_1, out_2]"));
    QVERIFY(texts.python.endsWith("A=sol[:,0]\nB=sol[:,1]\nC=sol[:,2]\n"));

    QVERIFY(texts.matlab.startsWith("function matlab_ODE()\n\n"));
    QVERIFY(texts.matlab.contains("\nu_init =[0, 0, 0];\n"));
    QVERIFY(texts.matlab.endsWith("function out = RHS(t, u)\nA = u(1);\nB = u(2);\nC = u(3);\n[Km, Vm, k] = "
                                  "parameterValues();\nglobal infRate_A infRate_B infRate_C\n"
                                  "out(1)=-Vm*A/(Km+A)+infRate_A;\nout(2)=Vm*A/(Km+A)-k*B+infRate_B;\n"
                                  "out(3)=k*B+infRate_C;\nout=out';\n\nend"));

    // Solid edges first, though the dotted one lies in an earlier column; the
    // diagonal and the independent pairs give none.
    QVERIFY(texts.rCompartmentDiagram.startsWith("library(DiagrammeR)\n\n#"));
    QVERIFY(texts.rCompartmentDiagram.endsWith(
            "grViz('digraph boxes_and_circles {\n B->C\n A->B [style=dotted]\n}')"));
    QVERIFY(texts.rTranslationFunctions.startsWith("EXP<- function(x_in){\n return(exp(x_in))}\n\n"));
    QVERIFY(texts.rTranslationFunctions.endsWith("LN<- function(x_in){\n return(log(x_in))}\n\n"));
    QCOMPARE(texts.rTranslationFunctions.count("<- function(x_in)"), 13);
}

void ScriptExportTest::singleStateBlocks()
{
    const ScriptTexts texts =
            generateScripts(parsedSystem("dAdt = -k*A"), {{"k"}, {"10^(x1)"}, 1}, {-1, {0.0}, -1});
    QVERIFY(texts.rOde.contains("\nstate <- c(A=0)\nout=NULL\n"));
    QVERIFY(texts.rOde.contains("\ninfusionRate=c(infRate_A=0)\n"));
    // One name still unpacks a one-element list in Python.
    QVERIFY(texts.python.contains("\tA, = y\n\tk, infRate_A = para\n"));
    QVERIFY(texts.python.contains("\ninfRate_A,=[\n0, # infRate_A\n]\npara=[k, infRate_A]"));
    QVERIFY(texts.matlab.contains("u_init =[0];\n"));
    QCOMPARE(rLastStateBlock({"A", "B"}),
             QString("# ===Last State vector from the ODE solve (ODE variables)===\n"
                     "#(use it for multiple administration model)\ntimeIndex=length(times)\n"
                     "state <- c(A=out[timeIndex,'A'],B=out[timeIndex,'B']) \n"));
}

// Column by column: what each state feeds, in equation order.
void ScriptExportTest::pbpkCompartmentDiagram()
{
    const ProjectModel model = loadProjectModel(AMBREL_EXAMPLES_DIR "/pbpk");
    QVERIFY2(model.isValid(), qPrintable(problemsOf(model)));
    QStringList edges;
    for (const QString &line : rCompartmentDiagramScript(model.system).split('\n'))
        if (line.startsWith(' '))
            edges << line.trimmed();
    QCOMPARE(edges.join(' '), QString("Aven->Alu Alu->Aart Aart->Ali Aart->Agu Aart->Asp Aart->Aki Aart->Amu "
                                      "Aart->Aad Aart->Abr Aart->Ask Aart->Are Ali->Aven Agu->Ali Asp->Ali "
                                      "Aki->Aven Amu->Aven Aad->Aven Abr->Aven Ask->Aven Are->Aven"));
}

void ScriptExportTest::storedPointAndFallback()
{
    OralProject p;
    QVERIFY2(p.model.isValid(), qPrintable(problemsOf(p.model)));
    const ScriptParameterSource stored = scriptParameterSource(p.folder, p.model);
    QCOMPARE(stored.finalIteration, 2);
    QCOMPARE(stored.row, 1);
    QVERIFY(closeTo(p.model.parametersOf(stored.x), QVector<double>{4.0, 40.0, 1.2}, 1e-12));

    // A newest iteration without any SSR is no result: the domain midpoints.
    writeDoubleMatrix(p.folder + "/compResult/X_3.csv", {{0.0, 0.0, 0.0}});
    writeDoubleMatrix(p.folder + "/compResult/R_3.csv", {{kNaN}});
    const ScriptParameterSource fallback = scriptParameterSource(p.folder, p.model);
    QCOMPARE(fallback.finalIteration, -1);
    QVERIFY(closeTo(p.model.parametersOf(fallback.x), p.model.referenceParameters, 1e-9));

    QVERIFY(exportScripts(p.folder, p.model).isEmpty());
    for (const QString &name : scriptFileNames())
        QVERIFY2(QFileInfo(p.folder + "/model/" + name).size() > 0, qPrintable(name));
    QVERIFY(readTextFile(p.folder + "/model/rscript_ODE.R").contains("x_best=c("));
}

void ScriptExportTest::rScriptMatchesStage2()
{
    if (QStandardPaths::findExecutable("Rscript").isEmpty())
        QSKIP("Rscript is not installed");
    const QStringList arguments{
            "-e", "suppressMessages(source('rscript_ODE.R')); cat(sprintf('%.17g', y), sep='\\n')"};
    const auto scriptOutputs = [&](const QString &folder) {
        QString output;
        QVector<double> y;
        if (run("Rscript", arguments, folder + "/model", &output))
            for (const QString &line : output.split('\n', Qt::SkipEmptyParts))
                y << line.toDouble();
        return y;
    };
    OralProject p;
    QVERIFY(exportScripts(p.folder, p.model).isEmpty());
    compareOutputs(scriptOutputs(p.folder), p.reference, 1e-4);

    // Without a stored result the script holds the domain midpoints.
    QTemporaryDir fresh;
    const QString folder = copyExample(fresh, "oral-absorption");
    const ProjectModel model = loadProjectModel(folder);
    QVERIFY(exportScripts(folder, model).isEmpty());
    compareOutputs(scriptOutputs(folder),
                   p.outputs(p.stage2States(model.referenceParameters), model.referenceParameters), 1e-4);
}

void ScriptExportTest::pythonScriptMatchesStage2()
{
    const QString python = "/usr/bin/python3";
    if (!QFileInfo(python).isExecutable() ||
        !run(python, {"-c", "import numpy, scipy.integrate"}, QDir::tempPath()))
        QSKIP("/usr/bin/python3 with numpy and scipy is not installed");
    OralProject p;
    QVERIFY(exportScripts(p.folder, p.model).isEmpty());
    const QString path = p.folder + "/model/python_ODE.py";
    QVERIFY(patch(path, "y_init=[\n0, # Ag\n", "y_init=[\n320, # Ag\n"));
    QVERIFY(patch(path, "time = np.linspace(0,24,49)", "time = np.array([0," + p.observationTimes() + "])",
                  "\nnp.savetxt('python_result.csv', sol[1:], delimiter=',', fmt='%.17g')\n"));
    QVERIFY(run(python, {"python_ODE.py"}, p.folder + "/model"));
    compareOutputs(p.outputs(readDoubleMatrix(p.folder + "/model/python_result.csv"), p.parameters),
                   p.reference, 1e-4);
}

// The exported solve call runs at ode15s's default relative tolerance, 1e-3;
// at 1e-6 (which the test adds) the script meets the program to 1e-4.
void ScriptExportTest::matlabScriptMatchesStage2()
{
    if (QStandardPaths::findExecutable("octave").isEmpty())
        QSKIP("GNU Octave is not installed");
    OralProject p;
    QVERIFY(exportScripts(p.folder, p.model).isEmpty());
    const QString path = p.folder + "/model/matlab_ODE.m";
    QVERIFY(patch(path, "u_init =[0, 0];", "u_init =[320, 0];"));
    QVERIFY(patch(path, "obsTime=[1,2];", "obsTime=[" + p.observationTimes() + "];"));
    QVERIFY(patch(path, "[t,u] = ode15s(@RHS, [doseTime obsTime],u_init );  %SOLVING ODE",
                  "[t,u] = ode15s(@RHS, [doseTime obsTime],u_init , odeset('RelTol', 1e-6, 'AbsTol', 1e-6));"
                  "\ndlmwrite('matlab_result.csv', u(2:end, :), 'precision', '%.17g');"));
    QVERIFY(run("octave", {"--no-gui", "--no-window-system", "--quiet", "--eval", "matlab_ODE"},
                p.folder + "/model"));
    compareOutputs(p.outputs(readDoubleMatrix(p.folder + "/model/matlab_result.csv"), p.parameters),
                   p.reference, 1e-4);
}

QTEST_GUILESS_MAIN(ScriptExportTest)
#include "test_script_export.moc"
