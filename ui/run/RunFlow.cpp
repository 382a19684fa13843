#include "ui/run/RunFlow.h"

#include "engine/EngineSetup.h"
#include "project/ResultStore.h"
#include "ui/ProjectDocument.h"
#include "ui/ProjectFolder.h"
#include "ui/Workbench.h"
#include "ui/messages/ProblemHtml.h"
#include "ui/steps/ParameterStep.h"
#include "ui/steps/RunStep.h"
#include "ui/tables/TableWidgetFiles.h"
#include "ui/widgets/QTableWidgetWithCopyPaste.h"

#include <QCheckBox>
#include <QDateTime>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpression>
#include <QSpinBox>
#include <QTextEdit>

namespace {

const char *const kVersionText = "alpha 5.1.0";

bool hasSpecificationProblem(const ProjectModel &model)
{
    for (const Problem &problem : model.problems)
        if (problem.source == ProblemSource::ParameterSpecification)
            return true;
    return false;
}

// A positive number from a settings field, or a problem naming the field.
bool positiveSetting(const QLineEdit *edit, const QString &label, double &value, QStringList &problems)
{
    bool ok = false;
    const double number = edit->text().trimmed().toDouble(&ok);
    if (ok && number > 0) {
        value = number;
        return true;
    }
    problems << QStringLiteral("%1 must be a positive number, not \"%2\".").arg(label, edit->text());
    return false;
}

// The weights text: one weight per observation, separated by commas, blanks
// or line ends.
QVector<double> parseWeights(const QString &text, bool &ok)
{
    QVector<double> weights;
    ok = true;
    for (const QString &part :
         text.split(QRegularExpression(QStringLiteral("[,\\s]+")), Qt::SkipEmptyParts)) {
        bool isNumber = false;
        const double value = part.toDouble(&isNumber);
        ok = ok && isNumber && value >= 0;
        weights << value;
    }
    return weights;
}

} // namespace

RunFlow::RunFlow(const Workbench &workbench, QWidget *window)
    : QObject(window)
    , m_workbench(workbench)
    , m_window(window)
{
    m_runner.setParent(this);
}

RunFlow::~RunFlow()
{
    stopAndWait(30000);
}

bool RunFlow::stopAndWait(int msecs)
{
    if (!m_runner.isRunning())
        return true;
    m_runner.requestStop();
    return m_runner.waitForIdle(msecs);
}

void RunFlow::requestAbort()
{
    m_runner.requestStop();
}

void RunFlow::start(bool restart)
{
    if (m_runner.isRunning())
        return;
    m_workbench.setModelEditable(false);
    const ProjectModel &model = m_workbench.document->model();
    if (hasSpecificationProblem(model)) {
        refuse(parameterSpecificationRefusal());
        return;
    }
    RunSettings settings;
    QStringList settingProblems;
    const bool settingsRead = readSettings(settings, settingProblems);
    if (!model.isValid() || !settingsRead) {
        m_workbench.errorPane->setHtml(problemsHtml(model.problems) +
                                       (model.isValid() ? QString() : QStringLiteral("<br>")) +
                                       redBlockHtml(settingProblems));
        refuse(QStringLiteral(
                "The model or the settings have errors (shown above), Ambrel method cannot be run."));
        return;
    }
    if (!prepareRecord(restart, settings))
        return;
    m_workbench.project->save();
    ambrel_method *engine = m_runner.engine();
    configureEngine(*engine, m_workbench.document->model(), settings);
    engine->projectFolder = m_workbench.project->folder();
    showLog(engine->result.log);
    connectEngine();
    m_workbench.setComputing(true);
    m_runner.start(restart);
}

void RunFlow::refuse(const QString &logText)
{
    m_workbench.run->logPane()->setPlainText(logText);
    m_workbench.project->save();
    returnToIdle();
}

bool RunFlow::readSettings(RunSettings &settings, QStringList &problems) const
{
    const RunStep *run = m_workbench.run;
    positiveSetting(run->relativeToleranceEdit(), QStringLiteral("ODE solve relative tolerence for Stage 1"),
                    settings.stage1RelativeTolerance, problems);
    positiveSetting(run->initialLambdaEdit(), QStringLiteral("Initial lambda"), settings.initialLambda,
                    problems);
    settings.stage1Iterations = run->stage1IterationsBox()->value();
    settings.stage2Iterations = run->stage2IterationsBox()->value();
    settings.stricterInitialSampling = run->stricterSamplingBox()->isChecked();
    settings.maxInitialTries = run->maxInitialSamplingBox()->value();
    settings.timeLimitMs = run->timeLimitBox()->value();
    settings.polish = run->polishBox()->isChecked();
    settings.initialClusterPoints = m_workbench.parameters->clusterSizeBox()->value();
    settings.weightedIterations = run->weightedIterationsBox()->value();
    if (settings.stage1Iterations + settings.stage2Iterations < 1)
        problems << QStringLiteral("A run needs at least one iteration.");
    if (settings.weightedIterations > 0) {
        bool ok = false;
        const QVector<double> weights = parseWeights(run->weightsEditor()->toPlainText(), ok);
        const int observations = m_workbench.document->model().observations.size();
        if (!ok || weights.size() != observations)
            problems << QStringLiteral("The weights must be one number of at least 0 per observation: %1 "
                                       "observations, %2 weights given.")
                                .arg(observations)
                                .arg(weights.size());
        // The weighted iterations come first; the next iteration returns to equal weights.
        settings.weightsPerIteration = QVector<QVector<double>>(settings.weightedIterations, weights);
        settings.weightsPerIteration << QVector<double>(observations, 1.0);
    }
    return problems.isEmpty();
}

QStringList RunFlow::logHeader(const RunSettings &settings) const
{
    auto number = [](double value) { return QString::number(value, 'g', 6); };
    return {QStringLiteral(">>>>>>Ambrel method for PBPK models version ") + kVersionText +
                    QStringLiteral("<<<<<<"),
            QStringLiteral("Stage 1 evaluates the model with the Rosenbrock method at the relative tolerance "
                           "below; Stage 2 with LSODA at higher accuracy."),
            QStringLiteral("InitialLambda: ") + number(settings.initialLambda),
            QStringLiteral("ODE solve RelTol for Stage 1 (Rosenbrock method): ") +
                    number(settings.stage1RelativeTolerance),
            QStringLiteral("ODE solve TimeLimit: ") + QString::number(settings.timeLimitMs),
            QStringLiteral("Number of Stage1 iterations: ") + QString::number(settings.stage1Iterations),
            QStringLiteral("Number of Stage2 iterations: ") + QString::number(settings.stage2Iterations),
            QStringLiteral("Number of Weighted iterations: ") + QString::number(settings.weightedIterations),
            QStringLiteral("Weights: ") + m_workbench.run->weightsEditor()->toPlainText().simplified(),
            QStringLiteral("Maximum number of initial sampling: ") +
                    QString::number(settings.maxInitialTries)};
}

// The engine's record before it starts: the initial cluster and the log
// header for a fresh run; the current result with a restart note for a
// restart.
bool RunFlow::prepareRecord(bool restart, const RunSettings &settings)
{
    ambrel_method *engine = m_runner.engine();
    if (restart) {
        if (!m_workbench.document->hasResult()) {
            refuse(QStringLiteral("There is no computation result to restart from."));
            return false;
        }
        engine->result = m_workbench.document->result();
        engine->result.log << QStringLiteral("\n\n\n=== computation restarted at ") +
                                      QDateTime::currentDateTime().toString() + QStringLiteral(" ====");
        engine->result.log << logHeader(settings);
        return true;
    }
    const DoubleMatrix cluster = m_workbench.parameters->ensureInitialCluster();
    if (cluster.isEmpty()) {
        refuse(QStringLiteral("The initial cluster holds no points: set the number of points in Step3-2."));
        return false;
    }
    engine->result = compResult();
    engine->result.X << cluster;
    engine->result.log = logHeader(settings);
    return true;
}

void RunFlow::connectEngine()
{
    ambrel_method *engine = m_runner.engine();
    QProgressBar *progress = m_workbench.run->progressBar();
    const auto unique = Qt::UniqueConnection;
    connect(engine, SIGNAL(calculationCompleted()), m_window, SLOT(AMmethod_computation_completed()), unique);
    connect(engine, SIGNAL(max_modelEval(int)), progress, SLOT(setMaximum(int)), unique);
    connect(engine, SIGNAL(additional_modelEval(int)), progress, SLOT(setValue(int)), unique);
    connect(engine, SIGNAL(current_computation_result(compResult)), m_window,
            SLOT(update_computation_result(compResult)), unique);
}

void RunFlow::showLog(const QStringList &log)
{
    QTextEdit *pane = m_workbench.run->logPane();
    pane->setPlainText(log.join(QLatin1Char('\n')));
    pane->moveCursor(QTextCursor::End); // the newest lines in view
    pane->ensureCursorVisible();
}

void RunFlow::iterationResult(const compResult &result)
{
    showLog(result.log);
    m_workbench.document->setResult(result);
}

void RunFlow::completed()
{
    compResult final = m_runner.engine()->result;
    const QString folder = m_workbench.project->folder();
    if (!folder.isEmpty()) {
        final.log << QStringLiteral("Model and Computation result are saved in ") + folder;
        writeComputationLog(folder, final.log);
    }
    showLog(final.log);
    m_workbench.document->setResult(final);
    returnToIdle();
    QProgressBar *progress = m_workbench.run->progressBar();
    progress->setValue(progress->maximum());
}

void RunFlow::returnToIdle()
{
    m_workbench.run->runButton()->setText(QString::fromLatin1(RunStep::startButtonText));
    m_workbench.setComputing(false);
    m_workbench.setModelEditable(true);
}
