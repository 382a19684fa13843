#include "ScriptExport.h"

#include "expression/ExpressionParser.h"
#include "model/OdeSystemText.h"
#include "project/ProjectModel.h"
#include "project/ResultStore.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QTextStream>

#include <cmath>

namespace {

struct FunctionToken {
    const char *name; // the expression language's spelling, without "("
    const char *rAndMatlab;
    const char *python;
};

const FunctionToken kFunctions[] = {
        {"EXP", "exp", "np.exp"},      {"LOG", "log", "np.log"},      {"LOG10", "log10", "np.log10"},
        {"ABS", "abs", "np.abs"},      {"SIGN", "sign", "np.sign"},   {"SQRT", "sqrt", "np.sqrt"},
        {"SIN", "sin", "np.sin"},      {"COS", "cos", "np.cos"},      {"TAN", "tan", "np.tan"},
        {"ASIN", "asin", "np.arcsin"}, {"ACOS", "acos", "np.arccos"}, {"ATAN", "atan", "np.arctan"},
        {"LN", "log", "np.log"},
};

bool isOperatorChar(QChar c)
{
    return c == QLatin1Char('^') || c == QLatin1Char('*') || c == QLatin1Char('/') || c == QLatin1Char('+') ||
           c == QLatin1Char('-') || c == QLatin1Char('(') || c == QLatin1Char(')');
}

// Replaces every function name that stands directly before "(" as a whole
// name (between operator characters). A whole-name match keeps "ASIN(" from
// being read as "A" and "SIN(".
QString replaceFunctions(const QString &text, ScriptLanguage language)
{
    QString out;
    int i = 0;
    while (i < text.size()) {
        if (isOperatorChar(text[i])) {
            out += text[i++];
            continue;
        }
        int end = i;
        while (end < text.size() && !isOperatorChar(text[end]))
            ++end;
        const QString name = text.mid(i, end - i);
        QString replacement = name;
        if (end < text.size() && text[end] == QLatin1Char('(')) {
            for (const FunctionToken &f : kFunctions) {
                if (name.compare(QLatin1String(f.name), Qt::CaseInsensitive) == 0) {
                    replacement = QLatin1String(language == ScriptLanguage::Python ? f.python : f.rAndMatlab);
                    break;
                }
            }
        }
        out += replacement;
        i = end;
    }
    return out;
}

// Index of the ")" that closes the "(" at open, or -1.
int closingParenthesis(const QString &text, int open)
{
    int depth = 0;
    for (int i = open; i < text.size(); ++i) {
        if (text[i] == QLatin1Char('('))
            ++depth;
        else if (text[i] == QLatin1Char(')') && --depth == 0)
            return i;
    }
    return -1;
}

// a^b^c as a^(b^c), at every nesting level: the expression language groups
// powers to the right, MATLAB to the left.
QString groupPowersRight(const QString &text)
{
    // Split the level into operands (a name or number, optionally followed by
    // a parenthesised group, whose inside is rewritten recursively) and the
    // binary operators between them.
    struct Item {
        QString text;
        bool isOperator;
    };
    QVector<Item> items;
    int i = 0;
    while (i < text.size()) {
        const QChar c = text[i];
        if (c != QLatin1Char('(') && isOperatorChar(c)) {
            items.append({QString(c), true});
            ++i;
            continue;
        }
        int end = i;
        while (end < text.size() && !isOperatorChar(text[end]))
            ++end;
        QString operand = text.mid(i, end - i);
        if (end < text.size() && text[end] == QLatin1Char('(')) {
            const int close = closingParenthesis(text, end);
            if (close < 0) { // unbalanced: leave the rest as written
                operand += text.mid(end);
                end = text.size();
            } else {
                operand += QLatin1Char('(') + groupPowersRight(text.mid(end + 1, close - end - 1)) +
                           QLatin1Char(')');
                end = close + 1;
            }
        }
        items.append({operand, false});
        i = end;
    }

    QString out;
    for (int k = 0; k < items.size();) {
        // A chain operand ^ operand ^ ... starting at k.
        int last = k;
        while (!items[k].isOperator && last + 2 < items.size() && items[last + 1].isOperator &&
               items[last + 1].text == QLatin1String("^") && !items[last + 2].isOperator)
            last += 2;
        if (last - k >= 4) { // three or more operands
            QString grouped = items[last].text;
            for (int j = last - 2; j > k; j -= 2)
                grouped = QLatin1Char('(') + items[j].text + QLatin1Char('^') + grouped + QLatin1Char(')');
            out += items[k].text + QLatin1Char('^') + grouped;
            k = last + 1;
        } else {
            out += items[k].text;
            ++k;
        }
    }
    return out;
}

QString number(double value)
{
    return QString::number(value, 'g', 17);
}

// Values separated by ", ", as every language's vector literal takes them.
QString numberList(const QVector<double> &values)
{
    QStringList texts;
    for (double v : values)
        texts << number(v);
    return texts.join(QStringLiteral(", "));
}

// Names for a Python unpacking assignment: a single name needs a trailing
// comma to unpack a one-element list.
QString pythonTargets(const QStringList &names)
{
    return names.size() == 1 ? names.first() + QLatin1Char(',') : names.join(QStringLiteral(", "));
}

QStringList prefixed(const QString &prefix, const QStringList &names)
{
    QStringList out;
    for (const QString &name : names)
        out << prefix + name;
    return out;
}

// The stored file of an iteration as the scripts address it: after the
// project folder, with a leading "/".
QString storedFile(IterationFile file, int iteration)
{
    return QLatin1Char('/') + resultFileRelativePath(iterationFileName(file, iteration));
}

} // namespace

QString translateExpression(const QString &text, ScriptLanguage language)
{
    QString out = replaceFunctions(ExpressionParser::normalise(text), language);
    if (language == ScriptLanguage::Python)
        out.replace(QLatin1Char('^'), QLatin1String("**"));
    else if (language == ScriptLanguage::Matlab)
        out = groupPowersRight(out);
    return out;
}

QStringList scriptFileNames()
{
    return {QStringLiteral("rscript_ODE.R"), QStringLiteral("rscript_translationFunctions.R"),
            QStringLiteral("python_ODE.py"), QStringLiteral("matlab_ODE.m"),
            QStringLiteral("rscript_compartmentDiagram.R")};
}

// ---- parameter blocks ----------------------------------------------------

QString rParameterBlock(const ScriptTransformation &g, const ScriptParameterSource &source)
{
    QString s = QStringLiteral("# ===Convert the X values to the original parameter scale===\n"
                               "# Run this script from the model folder: currentDir is the project folder.\n"
                               "currentDir=normalizePath('..')\n");
    const int m = g.searchVariableCount;
    if (m > 0) {
        if (source.finalIteration >= 0) {
            s += QStringLiteral("# The best point (smallest SSR) of the final iteration's cluster.\n"
                                "X_final=as.matrix(read.csv(paste0(currentDir,\"%1\"), header=FALSE))\n"
                                "SSR_final=as.numeric(as.matrix(read.csv(paste0(currentDir,\"%2\"), "
                                "header=FALSE))[1,])\n"
                                "x_best=as.numeric(X_final[which.min(SSR_final),])\n")
                         .arg(storedFile(IterationFile::X, source.finalIteration),
                              storedFile(IterationFile::SSR, source.finalIteration));
        } else {
            s += QStringLiteral("# No stored result: the midpoints of the domains of interest.\n"
                                "x_best=c(%1)\n")
                         .arg(numberList(source.x));
        }
        for (int k = 1; k <= m; ++k)
            s += QStringLiteral("x%1=x_best[%1]\n").arg(k);
    }
    QStringList named;
    for (int p = 0; p < g.parameterNames.size(); ++p) {
        const QString &name = g.parameterNames[p];
        s += name + QLatin1Char('=') + translateExpression(g.expressions[p], ScriptLanguage::R) + '\n';
        named << name + QLatin1Char('=') + name;
    }
    s += QStringLiteral("parameters=c(") + named.join(QStringLiteral(", ")) + QLatin1Char(')');
    return s;
}

QString pythonParameterBlock(const ScriptTransformation &g, const ScriptParameterSource &source)
{
    QString s = QStringLiteral("# ===Convert the X values to the original parameter scale===\n"
                               "import os\n"
                               "currentDir = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))\n");
    const int m = g.searchVariableCount;
    if (m > 0) {
        if (source.finalIteration >= 0) {
            s += QStringLiteral("with open(currentDir + '%1', 'r') as f:\n"
                                "\treader = csv.reader(f)\n"
                                "\tX = list(reader)\n"
                                "with open(currentDir + '%2', 'r') as f:\n"
                                "\tSSR = [float(v) for v in next(csv.reader(f))]\n"
                                "# The best point: the smallest SSR (NaN marks a failed point).\n"
                                "best = min((v, i) for i, v in enumerate(SSR) if v == v)[1]\n"
                                "x_best = [float(v) for v in X[best]]\n")
                         .arg(storedFile(IterationFile::X, source.finalIteration),
                              storedFile(IterationFile::SSR, source.finalIteration));
        } else {
            s += QStringLiteral("# No stored result: the midpoints of the domains of interest.\n"
                                "x_best = [%1]\n")
                         .arg(numberList(source.x));
        }
        for (int k = 1; k <= m; ++k)
            s += QStringLiteral("x%1 = x_best[%2]\n").arg(k).arg(k - 1);
    }
    for (int p = 0; p < g.parameterNames.size(); ++p)
        s += g.parameterNames[p] + QLatin1Char('=') +
             translateExpression(g.expressions[p], ScriptLanguage::Python) + '\n';
    return s;
}

QString matlabParameterBlock(const ScriptTransformation &g, const ScriptParameterSource &source)
{
    QString s = QStringLiteral("\n% ===Convert the X values to the oritinal parameter scale and construct "
                               "parameters object for the ODE solve===\n\n");
    const int m = g.searchVariableCount;
    if (m > 0) {
        if (source.finalIteration >= 0) {
            s += QStringLiteral("currentDir = fileparts(fileparts(mfilename('fullpath')));\n"
                                "% The best point (smallest SSR) of the final iteration's cluster.\n"
                                "X_final = csvread([currentDir '%1']);\n"
                                "SSR_final = csvread([currentDir '%2']);\n"
                                "[~, best] = min(SSR_final);\n"
                                "x_best = X_final(best, :);\n")
                         .arg(storedFile(IterationFile::X, source.finalIteration),
                              storedFile(IterationFile::SSR, source.finalIteration));
        } else {
            s += QStringLiteral("% No stored result: the midpoints of the domains of interest.\n"
                                "x_best = [%1];\n")
                         .arg(numberList(source.x));
        }
        for (int k = 1; k <= m; ++k)
            s += QStringLiteral("x%1 = x_best(%1);\n").arg(k);
    }
    for (int p = 0; p < g.parameterNames.size(); ++p)
        s += g.parameterNames[p] + QLatin1Char('=') +
             translateExpression(g.expressions[p], ScriptLanguage::Matlab) + ";\n";
    s += QStringLiteral("global parameters\nparameters = [") + g.parameterNames.join(QStringLiteral(", ")) +
         "];";
    return s;
}

QString matlabParameterFunction(const QStringList &parameterNames)
{
    QString s = QStringLiteral("\n\nfunction [") + parameterNames.join(QStringLiteral(", ")) +
                QStringLiteral("] = parameterValues()\n"
                               "% The model parameters that matlab_ODE converted from the cluster.\n"
                               "global parameters\n");
    for (int p = 0; p < parameterNames.size(); ++p)
        s += QStringLiteral("%1 = parameters(%2);\n").arg(parameterNames[p]).arg(p + 1);
    s += QStringLiteral("end");
    return s;
}

// ---- the scripts ---------------------------------------------------------

QString rOdeScript(const OdeSystemText &system, const QString &parameterBlock)
{
    const QStringList &states = system.stateVariableNames;
    QString s = QStringLiteral("library('deSolve')\nsource('rscript_translationFunctions.R')\n\n");
    s += parameterBlock + QStringLiteral("\n\n");

    s += QStringLiteral("dose_event_raw=(read.csv(paste0(currentDir,\"/model/dose_events.txt\",sep=\"\"), "
                        "header=FALSE)) \n"
                        "dose_event=dose_event_raw[!is.na(dose_event_raw$V1)&!is.na(dose_event_raw$V2)&!is."
                        "na(dose_event_raw$V3)&!is.na(dose_event_raw$V4),]\n"
                        "dose_time=dose_event$V1\n"
                        "obs_event_raw=(read.csv(paste0(currentDir,\"/model/observations.txt\",sep=\"\"), "
                        "header=FALSE))\n"
                        "obs_event=obs_event_raw[!is.na(obs_event_raw$V1)&!is.na(obs_event_raw$V2)&!is.na("
                        "obs_event_raw$V3),]\n"
                        "obs_time=unique(as.numeric(obs_event$V1))\n"
                        // The closing parenthesis of sort() is needed for the script to parse.
                        "timeDiv=sort(c(unique(dose_time),max(obs_time)))\n");
    s += QStringLiteral("\n\n");

    s += QStringLiteral("RHS<-function(t, state, parameters_infRate) {\n"
                        "with(as.list(c(state, parameters_infRate)),{\n");
    for (int i = 0; i < states.size(); ++i)
        s += QLatin1Char('d') + states[i] + QLatin1Char('=') +
             translateExpression(system.rightHandSides.value(i), ScriptLanguage::R) +
             QStringLiteral("+infRate_") + states[i] + QLatin1Char('\n');
    s += QStringLiteral("list(c(") + prefixed(QStringLiteral("d"), states).join(QStringLiteral(", ")) +
         QStringLiteral("))\n})\n}");
    s += QStringLiteral("\n\n");

    s += QStringLiteral("# ===Initialise infusion rate vector===\n"
                        "#MODIFY line below to define any infusion administration\n"
                        "infusionRate=c(") +
         prefixed(QStringLiteral("infRate_"), states).join(QStringLiteral("=0, \n")) +
         QStringLiteral("=0)\n\nparameters_infRate=c(parameters,infusionRate)\n\n");
    s += QStringLiteral("\n\n");

    s += QStringLiteral("# ===Initialise state vector (ODE variables)===\n"
                        "#MODIFY line below to define any bolus administration\n"
                        "state <- c(");
    for (int i = 0; i < states.size(); ++i)
        s += states[i] + (i + 1 < states.size() ? QStringLiteral("=0,") : QStringLiteral("=0)\n"));

    s += QStringLiteral(
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
            "}\n"
            "}\n"
            "}\n");
    return s;
}

QString rLastStateBlock(const QStringList &stateVariableNames)
{
    QString s = QStringLiteral("# ===Last State vector from the ODE solve (ODE variables)===\n"
                               "#(use it for multiple administration model)\n"
                               "timeIndex=length(times)\n"
                               "state <- c(");
    for (int i = 0; i < stateVariableNames.size(); ++i) {
        const QString &name = stateVariableNames[i];
        s += name + QStringLiteral("=out[timeIndex,'") + name +
             (i + 1 < stateVariableNames.size() ? QStringLiteral("'],") : QStringLiteral("']) \n"));
    }
    return s;
}

QString rTranslationFunctionsScript()
{
    QString s;
    for (const FunctionToken &f : kFunctions)
        s += QLatin1String(f.name) + QStringLiteral("<- function(x_in){\n return(") +
             QLatin1String(f.rAndMatlab) + QStringLiteral("(x_in))}\n\n");
    return s;
}

QString pythonOdeScript(const OdeSystemText &system, const QString &parameterBlock)
{
    const QStringList &states = system.stateVariableNames;
    const QStringList infusionNames = prefixed(QStringLiteral("infRate_"), states);
    const QStringList paraNames = system.parameterNames + infusionNames;

    QString s = QStringLiteral("import scipy.integrate as integrate\nimport numpy as np\nimport csv\n\n\n");
    s += parameterBlock + QStringLiteral("\n\n");

    s += QStringLiteral("def diff_op(y, t,para):\n\t") + pythonTargets(states) + QStringLiteral(" = y\n\t") +
         pythonTargets(paraNames) + QStringLiteral(" = para\n\n\t");
    QStringList outputs;
    for (int i = 0; i < states.size(); ++i) {
        const QString out = QStringLiteral("out_%1").arg(i);
        outputs << out;
        s += out + QLatin1Char('=') +
             translateExpression(system.rightHandSides.value(i), ScriptLanguage::Python) +
             QStringLiteral("+infRate_") + states[i] + QStringLiteral(";\n\t");
    }
    s += QStringLiteral("\n\treturn [") + outputs.join(QStringLiteral(", ")) + QLatin1Char(']');

    s += QStringLiteral("\n\n# ===== specify initial condition (bolus dose) here =====\ny_init=[\n");
    for (int i = 0; i < states.size(); ++i)
        s += QStringLiteral("0, # ") + states[i] +
             (i + 1 < states.size() ? QStringLiteral("\n") : QStringLiteral("\n]"));

    s += QStringLiteral("\n\n# ===== specify infusion dose here =====\n") + pythonTargets(infusionNames) +
         QStringLiteral("=[\n");
    for (const QString &name : infusionNames)
        s += QStringLiteral("0, # ") + name + QLatin1Char('\n');
    s += QLatin1Char(']');

    s += QStringLiteral("\npara=[") + paraNames.join(QStringLiteral(", ")) +
         QStringLiteral(
                 "]\n\n# ===== specify the observation time here =====\n"
                 "time = np.linspace(0,24,49) # e.g., solve for time 0 to 24 and divided by 48 intervals");
    s += QStringLiteral("\n\nsol = integrate.odeint(diff_op, y_init ,time, args=(para,))\n\n");
    for (int i = 0; i < states.size(); ++i)
        s += states[i] + QStringLiteral("=sol[:,") + QString::number(i) + QStringLiteral("]\n");
    return s;
}

QString matlabOdeScript(const OdeSystemText &system, const QString &parameterBlock,
                        const QString &parameterFunction)
{
    const QStringList &states = system.stateVariableNames;
    const QString globalInfusion =
            QStringLiteral("\nglobal ") + prefixed(QStringLiteral("infRate_"), states).join(QLatin1Char(' '));

    QString s = QStringLiteral("function matlab_ODE()\n\n");
    s += parameterBlock + QStringLiteral("\n\n");

    s += QStringLiteral("% ===Initialise infusion rate vector===\n"
                        "%MODIFY lines below to define any infusion administration\n") +
         globalInfusion + QLatin1Char('\n');
    for (const QString &name : states)
        s += QStringLiteral("infRate_") + name + QStringLiteral("=0;\n");
    s += QStringLiteral("\n\n");

    s += QStringLiteral("% ===Initialise state vector (ODE variables)===\n"
                        "%MODIFY line below to define any bolus administration\n"
                        "u_init =[");
    for (int i = 0; i < states.size(); ++i)
        s += i + 1 < states.size() ? QStringLiteral("0, ") : QStringLiteral("0];\n");

    s += QStringLiteral("\n\nobsTime=[1,2];%MODIFY this line to specify the observation time\n"
                        "doseTime=0;%MODIFY this line to specify the dose time\n\n"
                        "[t,u] = ode15s(@RHS, [doseTime obsTime],u_init );  %SOLVING ODE\n\nend");

    s += parameterFunction + QStringLiteral("\n\n");

    s += QStringLiteral("function out = RHS(t, u)");
    for (int i = 0; i < states.size(); ++i)
        s += QStringLiteral("\n%1 = u(%2);").arg(states[i]).arg(i + 1);
    if (!system.parameterNames.isEmpty())
        s += QStringLiteral("\n[") + system.parameterNames.join(QStringLiteral(", ")) +
             QStringLiteral("] = parameterValues();");
    s += globalInfusion;
    for (int i = 0; i < states.size(); ++i)
        s += QStringLiteral("\nout(%1)=").arg(i + 1) +
             translateExpression(system.rightHandSides.value(i), ScriptLanguage::Matlab) +
             QStringLiteral("+infRate_") + states[i] + QLatin1Char(';');
    s += QStringLiteral("\nout=out';\n\nend");
    return s;
}

QString rCompartmentDiagramScript(const OdeSystemText &system)
{
    const QStringList &states = system.stateVariableNames;
    const auto &matrix = system.dependencyMatrix;
    QString s = QStringLiteral(
            "library(DiagrammeR)\n\n"
            "# See the Graphviz dot guide (https://graphviz.org/pdf/dotguide.pdf) for the syntax of grViz\n"
            "#The location of the compartments in the diagram is algorithmically placed use 'subgraph "
            "cluster...' definition to reorganise if necessary\n\n"
            "# Solid lines represent linear diffusions and dotted lines represents nonlinear "
            "relationships\n\n"
            "grViz('digraph boxes_and_circles {\n");
    // Column j is the state the equation of row i depends on: the arrow runs j -> i.
    auto edges = [&](int kind, const QString &ending) {
        for (int j = 0; j < states.size(); ++j)
            for (int i = 0; i < matrix.size(); ++i)
                if (i != j && j < matrix[i].size() && matrix[i][j] == kind)
                    s += QLatin1Char(' ') + states[j] + QStringLiteral("->") + states.value(i) + ending;
    };
    edges(OdeSystemText::Linear, QStringLiteral("\n"));
    edges(OdeSystemText::NonLinear, QStringLiteral(" [style=dotted]\n"));
    s += QStringLiteral("}')");
    return s;
}

ScriptTexts generateScripts(const OdeSystemText &system, const ScriptTransformation &g,
                            const ScriptParameterSource &source)
{
    ScriptTexts texts;
    texts.rOde = rOdeScript(system, rParameterBlock(g, source));
    texts.rTranslationFunctions = rTranslationFunctionsScript();
    texts.python = pythonOdeScript(system, pythonParameterBlock(g, source));
    texts.matlab = matlabOdeScript(system, matlabParameterBlock(g, source),
                                   matlabParameterFunction(g.parameterNames));
    texts.rCompartmentDiagram = rCompartmentDiagramScript(system);
    return texts;
}

// ---- project side --------------------------------------------------------

ScriptTransformation scriptTransformation(const ProjectModel &model)
{
    ScriptTransformation g;
    g.parameterNames = model.system.parameterNames;
    g.searchVariableCount = model.searchVariableCount;
    for (const QString &name : qAsConst(g.parameterNames)) {
        const ExpressionParser *parser = model.g.find(name);
        g.expressions << (parser ? parser->expressionText() : QString());
    }
    return g;
}

ScriptParameterSource storedFinalPoint(const QString &folder, int searchVariableCount)
{
    ScriptParameterSource source;
    const int last = storedIterationCount(folder, IterationFile::X) - 1;
    if (last < 0)
        return source;
    const DoubleMatrix X = readIterationFile(folder, IterationFile::X, last);
    const DoubleMatrix R = readIterationFile(folder, IterationFile::SSR, last);
    if (R.isEmpty())
        return source;
    int best = -1;
    for (int i = 0; i < R.first().size() && i < X.size(); ++i) {
        const double ssr = R.first()[i];
        if (std::isnan(ssr) || X[i].size() != searchVariableCount)
            continue;
        if (best < 0 || ssr < R.first()[best])
            best = i;
    }
    if (best < 0)
        return source;
    source.finalIteration = last;
    source.row = best;
    source.x = X[best];
    return source;
}

ScriptParameterSource domainMidpointSource(const ProjectModel &model)
{
    ScriptParameterSource source;
    source.x =
            applyInverseTransformation(model.gInverse, model.searchVariableCount, model.referenceParameters);
    return source;
}

ScriptParameterSource scriptParameterSource(const QString &folder, const ProjectModel &model)
{
    const ScriptParameterSource stored = storedFinalPoint(folder, model.searchVariableCount);
    return stored.finalIteration >= 0 ? stored : domainMidpointSource(model);
}

QStringList writeScriptFiles(const QString &folder, const ScriptTexts &texts)
{
    QStringList failed;
    const QString dir = folder + QStringLiteral("/model/");
    QDir().mkpath(dir);
    const QStringList names = scriptFileNames();
    const QStringList contents = texts.all();
    for (int i = 0; i < names.size(); ++i) {
        QFile file(dir + names[i]);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            qDebug() << "Error, unable to save" << file.fileName();
            failed << file.fileName();
            continue;
        }
        file.write(contents[i].toUtf8());
    }
    return failed;
}

QStringList exportScripts(const QString &folder, const ProjectModel &model,
                          const ScriptParameterSource &source)
{
    if (!model.isValid())
        return problemTexts(model.problems);
    const ScriptTexts texts = generateScripts(model.system, scriptTransformation(model), source);
    QStringList errors;
    for (const QString &file : writeScriptFiles(folder, texts))
        errors << QStringLiteral("Could not write %1").arg(file);
    return errors;
}

QStringList exportScripts(const QString &folder, const ProjectModel &model)
{
    return exportScripts(folder, model, scriptParameterSource(folder, model));
}
