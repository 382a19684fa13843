#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

class OdeSystemText;
struct ProjectModel;

// The model written as stand-alone scripts for R (deSolve), Python (scipy
// odeint) and MATLAB/Octave (ode15s), plus an R compartment diagram
// (DiagrammeR), saved in the project's "model" folder.
//
// The R script runs unmodified from the model folder: it reads the dose
// events and observations of the project and replays the boluses. The Python
// and MATLAB scripts solve one problem whose initial state, infusion rates and
// output times the user fills in where the script marks them.

enum class ScriptLanguage { R, Python, Matlab };

// A right-hand side (or any formula of the expression language) in the
// script's language: blanks and "/n" removed as the parser does, the function
// tokens ("EXP(", "LN(", "ASIN(", ... in any letter case) replaced by the
// language's functions, LN and LOG both the natural logarithm; "^" becomes
// "**" in Python and, since MATLAB's "^" groups to the left, a chain a^b^c is
// written a^(b^c) there.
QString translateExpression(const QString &text, ScriptLanguage language);

// The point whose model parameters the scripts use.
struct ScriptParameterSource {
    // The last stored iteration k, or -1 without a stored result. With k the
    // scripts read "compResult/X_<k>.csv" and "compResult/R_<k>.csv" when they
    // run and take the cluster row with the smallest SSR; without it they
    // hold x literally.
    int finalIteration = -1;
    // The chosen point in search coordinates (x1, x2, ...).
    QVector<double> x;
    // Its row in the stored cluster, -1 without a stored result.
    int row = -1;
};

// g as the scripts evaluate it: per parameter, in parameter order, the
// right-hand side of its g equation in the search variables x1..xm.
struct ScriptTransformation {
    QStringList parameterNames;
    QStringList expressions;
    int searchVariableCount = 0;
};

// The texts of the five files, in the order of scriptFileNames().
struct ScriptTexts {
    QString rOde;
    QString rTranslationFunctions;
    QString python;
    QString matlab;
    QString rCompartmentDiagram;

    QStringList all() const { return {rOde, rTranslationFunctions, python, matlab, rCompartmentDiagram}; }
};

// "rscript_ODE.R", "rscript_translationFunctions.R", "python_ODE.py",
// "matlab_ODE.m", "rscript_compartmentDiagram.R".
QStringList scriptFileNames();

// The parameter conversion blocks: x taken from the source, x1..xm assigned,
// then one assignment per parameter through g. R ends with the named vector
// "parameters"; MATLAB ends with the global vector "parameters" that the
// function parameterValues() (matlabParameterFunction) hands to the
// right-hand side.
QString rParameterBlock(const ScriptTransformation &g, const ScriptParameterSource &source);
QString pythonParameterBlock(const ScriptTransformation &g, const ScriptParameterSource &source);
QString matlabParameterBlock(const ScriptTransformation &g, const ScriptParameterSource &source);
QString matlabParameterFunction(const QStringList &parameterNames);

QString rOdeScript(const OdeSystemText &system, const QString &parameterBlock);
QString rTranslationFunctionsScript();
QString pythonOdeScript(const OdeSystemText &system, const QString &parameterBlock);
QString matlabOdeScript(const OdeSystemText &system, const QString &parameterBlock,
                        const QString &parameterFunction);
// Edges from the dependency matrix: solid for linear, dotted for non-linear
// off-diagonal cells, walked column by column.
QString rCompartmentDiagramScript(const OdeSystemText &system);
// The R state block that restarts from the last solved state (for building
// multiple-administration scripts by hand); not part of the exported file.
QString rLastStateBlock(const QStringList &stateVariableNames);

ScriptTexts generateScripts(const OdeSystemText &system, const ScriptTransformation &g,
                            const ScriptParameterSource &source);

// The project's g in the form the scripts need.
ScriptTransformation scriptTransformation(const ProjectModel &model);

// The best point (smallest SSR) of the last iteration stored under
// folder/compResult, or finalIteration -1 when there is none or none of its
// points has an SSR.
ScriptParameterSource storedFinalPoint(const QString &folder, int searchVariableCount);
// Without a stored result: the midpoints of the domains of interest, mapped
// to search coordinates by g inverse.
ScriptParameterSource domainMidpointSource(const ProjectModel &model);
// The stored final point if there is one, else the domain midpoints.
ScriptParameterSource scriptParameterSource(const QString &folder, const ProjectModel &model);

// Writes the five files into folder/model/ (created if missing). Returns the
// files that could not be written, empty on success.
QStringList writeScriptFiles(const QString &folder, const ScriptTexts &texts);

// Generates and writes the scripts of a loaded project. Returns error
// messages, empty on success; a project with errors is not exported.
QStringList exportScripts(const QString &folder, const ProjectModel &model,
                          const ScriptParameterSource &source);
QStringList exportScripts(const QString &folder, const ProjectModel &model);
