#include "model/OdeSystemText.h"
#include "ode/model_ode.h"
#include "project/ProjectModel.h"
#include "project/ScriptExport.h"
#include "project/TableFiles.h"

#include <QtTest>

#include <cmath>
#include <limits>

namespace {

const double NaN = std::numeric_limits<double>::quiet_NaN();

OdeSystemText parsedSystem(const QString &ode)
{
    OdeSystemText system(ode, QString());
    system.parseOdeSystem();
    return system;
}

// Michaelis-Menten elimination from A into B, first-order transfer from B into
// C: a non-linear edge A->B, a linear edge B->C, nothing towards A.
const char *kSmallModel = "dAdt = -Vm*A/(Km+A)\ndBdt = Vm*A/(Km+A) - k*B\ndCdt = k*B";

ScriptTransformation smallTransformation()
{
    return {{"Km", "Vm", "k"}, {"10^(x1)", "10^(x2)", "5"}, 2};
}

// A copy of an example project in a temporary folder.
QString copyExample(const QTemporaryDir &dir, const QString &example)
{
    const QString source = QStringLiteral(AMBREL_EXAMPLES_DIR "/") + example + "/model/";
    QDir().mkpath(dir.path() + "/model");
    for (const QString &name : QDir(source).entryList(QDir::Files))
        QFile::copy(source + name, dir.path() + "/model/" + name);
    return dir.path();
}

bool run(const QString &program, const QStringList &arguments, const QString &workingDirectory,
         QString *output)
{
    QProcess process;
    process.setWorkingDirectory(workingDirectory);
    process.start(program, arguments);
    if (!process.waitForFinished(180000)) {
        process.kill();
        return false;
    }
    *output = QString::fromUtf8(process.readAllStandardOutput());
    const QString errors = QString::fromUtf8(process.readAllStandardError());
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        qWarning().noquote() << program << "failed:" << errors;
        return false;
    }
    return true;
}

bool hasProgram(const QString &program)
{
    return !QStandardPaths::findExecutable(program).isEmpty() ||
           (program.startsWith('/') && QFileInfo(program).isExecutable());
}

QString replaced(QString text, const QString &before, const QString &after)
{
    if (!text.contains(before))
        qWarning().noquote() << "text to patch not found:" << before;
    return text.replace(before, after);
}

// The oral example with a stored run: iterations 0..2, the best point of the
// last one (row 1) at CL=4, V=40, ka=1.2, a worse point and a failed one.
struct OralProject {
    QTemporaryDir dir;
    QString folder;
    ProjectModel model;
    QVector<double> parameters; // what the scripts should use
    QVector<double> reference;  // this program's Stage 2 outputs at the observations

    OralProject()
    {
        folder = copyExample(dir, "oral-absorption");
        model = loadProjectModel(folder);
        const QVector<double> best = applyInverseTransformation(model.gInverse, 3, {4.0, 40.0, 1.2});
        QVector<double> worse = best;
        for (double &v : worse)
            v += 0.3;
        const DoubleMatrix cluster{worse, best, {0.0, 0.0, 0.0}};
        QDir().mkpath(folder + "/compResult");
        for (int k = 0; k < 3; ++k) {
            writeDoubleMatrix(folder + QString("/compResult/X_%1.csv").arg(k), cluster);
            writeDoubleMatrix(folder + QString("/compResult/R_%1.csv").arg(k), {{5.0, 0.01, NaN}});
        }
        parameters = model.parametersOf(best);
        reference = outputs(stage2States(parameters), parameters);
    }

    std::vector<std::vector<double>> stage2States(const QVector<double> &p) const
    {
        model_ode ode(model.system, model.doseEvents, model.observations);
        ode.useRosenbrock = 0;
        return ode.evaluate(p);
    }

    // The observation expressions evaluated on state rows (one per record).
    QVector<double> outputs(const std::vector<std::vector<double>> &states, const QVector<double> &p) const
    {
        QVector<double> y;
        for (int r = 0; r < model.observations.size(); ++r) {
            QVector<double> values{model.observations[r].time};
            for (double s : states[std::size_t(r)])
                values << s;
            values << p;
            y << model.observations[r].variableExpression.evaluate(values);
        }
        return y;
    }

    QString observationTimes() const
    {
        QStringList times;
        for (const ObservationEvent &o : model.observations)
            times << QString::number(o.time, 'g', 17);
        return times.join(",");
    }

    // Script states (one row per observation, columns t or not) to outputs.
    QVector<double> outputsOfRows(const DoubleMatrix &rows, int firstStateColumn) const
    {
        std::vector<std::vector<double>> states;
        for (const QVector<double> &row : rows)
            states.push_back(std::vector<double>(row.begin() + firstStateColumn, row.end()));
        return outputs(states, parameters);
    }
};

void compareOutputs(const QVector<double> &got, const QVector<double> &expected, double tolerance)
{
    QCOMPARE(got.size(), expected.size());
    double worst = 0.0;
    for (int i = 0; i < got.size(); ++i)
        worst = std::max(worst, std::abs(got[i] - expected[i]) / std::abs(expected[i]));
    qInfo("largest relative difference %.3g over %d outputs", worst, int(got.size()));
    for (int i = 0; i < got.size(); ++i)
        QVERIFY2(std::abs(got[i] - expected[i]) <= tolerance * std::abs(expected[i]),
                 qPrintable(QString("output %1: script %2, program %3")
                                    .arg(i)
                                    .arg(got[i], 0, 'g', 12)
                                    .arg(expected[i], 0, 'g', 12)));
}

} // namespace

class ScriptExportTest : public QObject {
    Q_OBJECT

private slots:
    void translation_data();
    void translation();
    void rScriptFixedText();
    void pythonScriptFixedText();
    void matlabScriptFixedText();
    void singleStateBlocks();
    void translationFunctions();
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

    QTest::newRow("logarithms") << "EXP(a) + LOG(b) - LOG10(c)*LN(d)"
                                << "exp(a)+log(b)-log10(c)*log(d)"
                                << "np.exp(a)+np.log(b)-np.log10(c)*np.log(d)"
                                << "exp(a)+log(b)-log10(c)*log(d)";
    QTest::newRow("arc functions are not SIN of A") << "ASIN(x)/ACOS(y)-ATAN(z)*SIN(x)"
                                                    << "asin(x)/acos(y)-atan(z)*sin(x)"
                                                    << "np.arcsin(x)/np.arccos(y)-np.arctan(z)*np.sin(x)"
                                                    << "asin(x)/acos(y)-atan(z)*sin(x)";
    QTest::newRow("nested") << "ABS(SIGN(SQRT(COS(TAN(u)))))"
                            << "abs(sign(sqrt(cos(tan(u)))))"
                            << "np.abs(np.sign(np.sqrt(np.cos(np.tan(u)))))"
                            << "abs(sign(sqrt(cos(tan(u)))))";
    QTest::newRow("lower-case aliases") << "exp(k)+ln(v)"
                                        << "exp(k)+log(v)"
                                        << "np.exp(k)+np.log(v)"
                                        << "exp(k)+log(v)";
    QTest::newRow("names containing function names") << "LOGk*EXPo(x)"
                                                     << "LOGk*EXPo(x)"
                                                     << "LOGk*EXPo(x)"
                                                     << "LOGk*EXPo(x)";
    QTest::newRow("power groups right") << "2^3^2-a^b"
                                        << "2^3^2-a^b"
                                        << "2**3**2-a**b"
                                        << "2^(3^2)-a^b";
    QTest::newRow("power chains inside groups") << "a^b^c^d*EXP(x^y^z)/(1+(p)^q^r)"
                                                << "a^b^c^d*exp(x^y^z)/(1+(p)^q^r)"
                                                << "a**b**c**d*np.exp(x**y**z)/(1+(p)**q**r)"
                                                << "a^(b^(c^d))*exp(x^(y^z))/(1+(p)^(q^r))";
    QTest::newRow("blanks and slash-n dropped") << "k /n V * 10^(0-3)"
                                                << "kV*10^(0-3)"
                                                << "kV*10**(0-3)"
                                                << "kV*10^(0-3)";
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

void ScriptExportTest::rScriptFixedText()
{
    const OdeSystemText system = parsedSystem(kSmallModel);
    QCOMPARE(system.parameterNames, QStringList({"Km", "Vm", "k"}));
    const ScriptTransformation g = smallTransformation();
    ScriptParameterSource literal;
    literal.x = {0.5, -1.0};
    const QString block = rParameterBlock(g, literal);
    QVERIFY(block.endsWith("x_best=c(0.5, -1)\nx1=x_best[1]\nx2=x_best[2]\n"
                           "Km=10^(x1)\nVm=10^(x2)\nk=5\nparameters=c(Km=Km, Vm=Vm, k=k)"));

    const QString expected =
            QString("library('deSolve')\nsource('rscript_translationFunctions.R')\n\n") + block +
            "\n\n"
            "dose_event_raw=(read.csv(paste0(currentDir,\"/model/dose_events.txt\",sep=\"\"), header=FALSE)) "
            "\n"
            "dose_event=dose_event_raw[!is.na(dose_event_raw$V1)&!is.na(dose_event_raw$V2)&!is.na(dose_event_"
            "raw$V3)&!is.na(dose_event_raw$V4),]\n"
            "dose_time=dose_event$V1\n"
            "obs_event_raw=(read.csv(paste0(currentDir,\"/model/observations.txt\",sep=\"\"), "
            "header=FALSE))\n"
            "obs_event=obs_event_raw[!is.na(obs_event_raw$V1)&!is.na(obs_event_raw$V2)&!is.na(obs_event_raw$"
            "V3),]\n"
            "obs_time=unique(as.numeric(obs_event$V1))\n"
            "timeDiv=sort(c(unique(dose_time),max(obs_time)))\n"
            "\n\n"
            "RHS<-function(t, state, parameters_infRate) {\nwith(as.list(c(state, parameters_infRate)),{\n"
            "dA=-Vm*A/(Km+A)+infRate_A\n"
            "dB=Vm*A/(Km+A)-k*B+infRate_B\n"
            "dC=k*B+infRate_C\n"
            "list(c(dA, dB, dC))\n})\n}"
            "\n\n"
            "# ===Initialise infusion rate vector===\n#MODIFY line below to define any infusion "
            "administration\n"
            "infusionRate=c(infRate_A=0, \ninfRate_B=0, "
            "\ninfRate_C=0)\n\nparameters_infRate=c(parameters,infusionRate)\n\n"
            "\n\n"
            "# ===Initialise state vector (ODE variables)===\n#MODIFY line below to define any bolus "
            "administration\n"
            "state <- c(A=0,B=0,C=0)\n"
            "out=NULL\n"
            "for(i in seq(1,length(timeDiv)-1)){\n"
            "dose_event_subset=subset(dose_event,V1==timeDiv[i])\n"
            "eval(parse(text = "
            "paste(paste0(\"state['\",dose_event_subset$V2,\"']=\",\"state['\",dose_event_subset$V2,\"']+\","
            "dose_event_subset$V3),collapse = '\n')))\n"
            "times=sort(c(timeDiv[i], obs_time[obs_time>timeDiv[i]&obs_time<timeDiv[i+1]],timeDiv[i+1]))\n"
            "out_new <- ode(y = state, times = times, func = RHS, parms = parameters_infRate)\n"
            "state=out_new[dim(out_new)[1],2:dim(out_new)[2]]\n"
            "out=rbind(out, out_new[2:dim(out_new)[1],])\n"
            "}\n"
            "y=rep(NA, dim(obs_event)[1])\n"
            "for(i in seq(1,length(obs_time))){\n"
            "out_atTime=out[out[,'time']==obs_time[i],]\n"
            "eval(parse(text = paste(paste(names(out_atTime),'=',as.numeric(out_atTime)),collapse = '\n')))\n"
            "for(j in seq(1,length(y))){\n"
            "if(obs_event[j,1]==obs_time[i]){\n"
            "y[j]=eval(parse(text = as.character(obs_event[j,2])))\n"
            "}\n}\n}\n";
    QCOMPARE(generateScripts(system, g, literal).rOde, expected);

    // Solid edges first, though the dotted one lies in an earlier column; the
    // diagonal and the independent pairs give none.
    const QString diagram = rCompartmentDiagramScript(system);
    QVERIFY(diagram.startsWith("library(DiagrammeR)\n\n#"));
    QVERIFY(diagram.endsWith(
            "\n#The location of the compartments in the diagram is algorithmically placed use 'subgraph "
            "cluster...' definition to reorganise if necessary\n\n# Solid lines represent linear "
            "diffusions and dotted lines represents nonlinear relationships\n\ngrViz('digraph "
            "boxes_and_circles {\n B->C\n A->B [style=dotted]\n}')"));
    QCOMPARE(diagram.count('\n'), 10);
}

void ScriptExportTest::pythonScriptFixedText()
{
    const OdeSystemText system = parsedSystem(kSmallModel);
    ScriptParameterSource stored;
    stored.finalIteration = 99;
    stored.x = {0.5, -1.0};
    const QString block = pythonParameterBlock(smallTransformation(), stored);
    QVERIFY(block.contains("with open(currentDir + '/compResult/X_99.csv', 'r') as f:\n"
                           "\treader = csv.reader(f)\n\tX = list(reader)\n"));
    QVERIFY(block.endsWith("x1 = x_best[0]\nx2 = x_best[1]\nKm=10**(x1)\nVm=10**(x2)\nk=5\n"));

    const QString expected =
            "import scipy.integrate as integrate\nimport numpy as np\nimport csv\n\n\n" + block +
            "\n\n"
            "def diff_op(y, t,para):\n\tA, B, C = y\n\tKm, Vm, k, infRate_A, infRate_B, infRate_C = "
            "para\n\n\t"
            "out_0=-Vm*A/(Km+A)+infRate_A;\n\tout_1=Vm*A/(Km+A)-k*B+infRate_B;\n\tout_2=k*B+infRate_C;\n\t"
            "\n\treturn [out_0, out_1, out_2]"
            "\n\n# ===== specify initial condition (bolus dose) here =====\ny_init=[\n0, # A\n0, # B\n0, # "
            "C\n]"
            "\n\n# ===== specify infusion dose here =====\n"
            "infRate_A, infRate_B, infRate_C=[\n0, # infRate_A\n0, # infRate_B\n0, # infRate_C\n]"
            "\npara=[Km, Vm, k, infRate_A, infRate_B, infRate_C]\n\n"
            "# ===== specify the observation time here =====\n"
            "time = np.linspace(0,24,49) # e.g., solve for time 0 to 24 and divided by 48 intervals"
            "\n\nsol = integrate.odeint(diff_op, y_init ,time, args=(para,))\n\n"
            "A=sol[:,0]\nB=sol[:,1]\nC=sol[:,2]\n";
    QCOMPARE(generateScripts(system, smallTransformation(), stored).python, expected);
}

void ScriptExportTest::matlabScriptFixedText()
{
    const OdeSystemText system = parsedSystem(kSmallModel);
    ScriptParameterSource stored;
    stored.finalIteration = 7;
    const QString block = matlabParameterBlock(smallTransformation(), stored);
    QVERIFY(block.startsWith("\n% ===Convert the X values to the oritinal parameter scale and "
                             "construct parameters object for the ODE solve===\n\n"));
    QVERIFY(block.contains("X_final = csvread([currentDir '/compResult/X_7.csv']);\n"));
    QVERIFY(block.endsWith("Km=10^(x1);\nVm=10^(x2);\nk=5;\nglobal parameters\nparameters = [Km, Vm, k];"));
    const QString function = matlabParameterFunction(system.parameterNames);

    const QString expected =
            "function matlab_ODE()\n\n" + block +
            "\n\n"
            "% ===Initialise infusion rate vector===\n%MODIFY lines below to define any infusion "
            "administration\n"
            "\nglobal infRate_A infRate_B infRate_C\ninfRate_A=0;\ninfRate_B=0;\ninfRate_C=0;\n"
            "\n\n"
            "% ===Initialise state vector (ODE variables)===\n%MODIFY line below to define any bolus "
            "administration\n"
            "u_init =[0, 0, 0];\n"
            "\n\nobsTime=[1,2];%MODIFY this line to specify the observation time\n"
            "doseTime=0;%MODIFY this line to specify the dose time\n\n"
            "[t,u] = ode15s(@RHS, [doseTime obsTime],u_init );  %SOLVING ODE\n\nend" +
            function +
            "\n\n"
            "function out = RHS(t, u)\nA = u(1);\nB = u(2);\nC = u(3);\n[Km, Vm, k] = parameterValues();"
            "\nglobal infRate_A infRate_B infRate_C"
            "\nout(1)=-Vm*A/(Km+A)+infRate_A;\nout(2)=Vm*A/(Km+A)-k*B+infRate_B;\nout(3)=k*B+infRate_C;"
            "\nout=out';\n\nend";
    QCOMPARE(generateScripts(system, smallTransformation(), stored).matlab, expected);
}

void ScriptExportTest::singleStateBlocks()
{
    const OdeSystemText system = parsedSystem("dAdt = -k*A");
    const ScriptTexts texts = generateScripts(system, {{"k"}, {"10^(x1)"}, 1}, {-1, {0.0}, -1});
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

void ScriptExportTest::translationFunctions()
{
    const QString text = rTranslationFunctionsScript();
    QVERIFY(text.startsWith("EXP<- function(x_in){\n return(exp(x_in))}\n\n"
                            "LOG<- function(x_in){\n return(log(x_in))}\n\n"
                            "LOG10<- function(x_in){\n return(log10(x_in))}\n\n"));
    QVERIFY(text.endsWith("ATAN<- function(x_in){\n return(atan(x_in))}\n\n"
                          "LN<- function(x_in){\n return(log(x_in))}\n\n"));
    QCOMPARE(text.count("<- function(x_in)"), 13);
}

void ScriptExportTest::pbpkCompartmentDiagram()
{
    const ProjectModel model = loadProjectModel(AMBREL_EXAMPLES_DIR "/pbpk");
    QVERIFY2(model.isValid(), qPrintable(problemTexts(model.problems).join('\n')));
    QStringList edges;
    for (const QString &line : rCompartmentDiagramScript(model.system).split('\n'))
        if (line.startsWith(' '))
            edges << line;
    // Column by column: what each state feeds, in equation order.
    const QStringList expected{" Aven->Alu", " Alu->Aart", " Aart->Ali", " Aart->Agu", " Aart->Asp",
                               " Aart->Aki", " Aart->Amu", " Aart->Aad", " Aart->Abr", " Aart->Ask",
                               " Aart->Are", " Ali->Aven", " Agu->Ali",  " Asp->Ali",  " Aki->Aven",
                               " Amu->Aven", " Aad->Aven", " Abr->Aven", " Ask->Aven", " Are->Aven"};
    QCOMPARE(edges, expected);
}

void ScriptExportTest::storedPointAndFallback()
{
    OralProject p;
    QVERIFY2(p.model.isValid(), qPrintable(problemTexts(p.model.problems).join('\n')));
    const ScriptParameterSource stored = scriptParameterSource(p.folder, p.model);
    QCOMPARE(stored.finalIteration, 2);
    QCOMPARE(stored.row, 1);
    const QVector<double> parameters = p.model.parametersOf(stored.x);
    QVERIFY(std::abs(parameters[0] - 4.0) < 1e-12 && std::abs(parameters[1] - 40.0) < 1e-12 &&
            std::abs(parameters[2] - 1.2) < 1e-12);

    // A newest iteration without any SSR is no result: the domain midpoints.
    writeDoubleMatrix(p.folder + "/compResult/X_3.csv", {{0.0, 0.0, 0.0}});
    writeDoubleMatrix(p.folder + "/compResult/R_3.csv", {{NaN}});
    const ScriptParameterSource fallback = scriptParameterSource(p.folder, p.model);
    QCOMPARE(fallback.finalIteration, -1);
    const QVector<double> midpoints = p.model.parametersOf(fallback.x);
    for (int i = 0; i < 3; ++i)
        QVERIFY(std::abs(midpoints[i] - p.model.referenceParameters[i]) <
                1e-9 * p.model.referenceParameters[i]);

    QVERIFY(exportScripts(p.folder, p.model).isEmpty());
    for (const QString &name : scriptFileNames())
        QVERIFY2(QFileInfo(p.folder + "/model/" + name).size() > 0, qPrintable(name));
    QVERIFY(readTextFile(p.folder + "/model/rscript_ODE.R").contains("x_best=c("));
}

void ScriptExportTest::rScriptMatchesStage2()
{
    if (!hasProgram("Rscript"))
        QSKIP("Rscript is not installed");
    const QStringList arguments{
            "-e", "suppressMessages(source('rscript_ODE.R')); cat(sprintf('%.17g', y), sep='\\n')"};

    OralProject p;
    QVERIFY(exportScripts(p.folder, p.model).isEmpty());
    QString output;
    QVERIFY(run("Rscript", arguments, p.folder + "/model", &output));
    QVector<double> y;
    for (const QString &line : output.split('\n', Qt::SkipEmptyParts))
        y << line.toDouble();
    compareOutputs(y, p.reference, 1e-4);

    // Without a stored result the script holds the domain midpoints.
    QTemporaryDir fresh;
    const QString folder = copyExample(fresh, "oral-absorption");
    const ProjectModel model = loadProjectModel(folder);
    QVERIFY(exportScripts(folder, model).isEmpty());
    QVERIFY(run("Rscript", arguments, folder + "/model", &output));
    y.clear();
    for (const QString &line : output.split('\n', Qt::SkipEmptyParts))
        y << line.toDouble();
    compareOutputs(y, p.outputs(p.stage2States(model.referenceParameters), model.referenceParameters), 1e-4);
}

void ScriptExportTest::pythonScriptMatchesStage2()
{
    const QString python = "/usr/bin/python3";
    if (!hasProgram(python))
        QSKIP("/usr/bin/python3 is not installed");
    QString output;
    if (!run(python, {"-c", "import numpy, scipy.integrate"}, QDir::tempPath(), &output))
        QSKIP("numpy or scipy is missing");

    OralProject p;
    QVERIFY(exportScripts(p.folder, p.model).isEmpty());
    const QString path = p.folder + "/model/python_ODE.py";
    QString text = readTextFile(path);
    text = replaced(text, "y_init=[\n0, # Ag\n", "y_init=[\n320, # Ag\n");
    text = replaced(text, "time = np.linspace(0,24,49)", "time = np.array([0," + p.observationTimes() + "])");
    text += "\nnp.savetxt('python_result.csv', sol[1:], delimiter=',', fmt='%.17g')\n";
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(text.toUtf8());
    file.close();

    QVERIFY(run(python, {"python_ODE.py"}, p.folder + "/model", &output));
    compareOutputs(p.outputsOfRows(readDoubleMatrix(p.folder + "/model/python_result.csv"), 0), p.reference,
                   1e-4);
}

void ScriptExportTest::matlabScriptMatchesStage2()
{
    if (!hasProgram("octave"))
        QSKIP("GNU Octave is not installed");
    OralProject p;
    QVERIFY(exportScripts(p.folder, p.model).isEmpty());
    const QString path = p.folder + "/model/matlab_ODE.m";
    QString exported = readTextFile(path);
    exported = replaced(exported, "u_init =[0, 0];", "u_init =[320, 0];");
    exported = replaced(exported, "obsTime=[1,2];", "obsTime=[" + p.observationTimes() + "];");
    const QString solve = "[t,u] = ode15s(@RHS, [doseTime obsTime],u_init );  %SOLVING ODE";
    const QString save = "\ndlmwrite('matlab_result.csv', u(2:end, :), 'precision', '%.17g');";

    // The exported solve call uses ode15s's default relative tolerance, 1e-3;
    // at 1e-6 (which the test adds) the script meets the program to 1e-4.
    const struct {
        QString options;
        double tolerance;
    } runs[] = {{"", 1e-3}, {", odeset('RelTol', 1e-6, 'AbsTol', 1e-6)", 1e-4}};
    for (const auto &r : runs) {
        QString text = exported;
        text.replace(solve, QString(solve).replace("u_init )", "u_init " + r.options + ")") + save);
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(text.toUtf8());
        file.close();
        QFile::remove(p.folder + "/model/matlab_result.csv");

        QString output;
        QVERIFY(run("octave", {"--no-gui", "--no-window-system", "--quiet", "--eval", "matlab_ODE"},
                    p.folder + "/model", &output));
        compareOutputs(p.outputsOfRows(readDoubleMatrix(p.folder + "/model/matlab_result.csv"), 0),
                       p.reference, r.tolerance);
    }
}

QTEST_GUILESS_MAIN(ScriptExportTest)
#include "test_script_export.moc"
