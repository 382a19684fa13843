#pragma once

#include "engine/ClusterEvaluation.h"
#include "engine/RunOutcome.h"
#include "engine/RunSettings.h"
#include "project/ResultWriter.h"
#include "project/compResult.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QVector>

#include <atomic>
#include <random>

// The Ambrel method: moves a whole cluster of parameter vectors (in the
// transformed coordinates of the search) towards small sums of squared
// residuals, with one regularisation parameter lambda per point. Stage 1
// evaluates the model with the loose Rosenbrock evaluator, Stage 2 with LSODA.
//
// Lives on a worker thread of its own (see EngineRunner); run(), rerun() and
// run_3() execute there and return only when the run ends. abort() takes
// effect at once only when called directly (the flag is read between the
// steps of an iteration).
class ambrel_method : public QObject {
    Q_OBJECT
public:
    explicit ambrel_method(QObject *parent = nullptr);

    // Set before a run. configureEngine() fills them from a project; the
    // integrator settings reach the evaluators only through it.
    RunSettings settings;
    static constexpr double lambdaLimit = 1e10;
    QVector<double> domainLower; // transformed coordinates
    QVector<double> domainUpper;
    QVector<double> target; // observed values y*, in observation order

    ClusterEvaluator evaluator;
    // The project folder; the result files go into its "compResult" folder.
    // Empty: nothing is written.
    QString projectFolder;

    // The run's record. Before run(), result.X holds the initial cluster as
    // its only entry; before rerun(), a stored result.
    compResult result;

    // Stage 1 + Stage 2, recomputed at each start.
    int totalIterations = settings.stage1Iterations + settings.stage2Iterations;
    std::atomic<bool> abortASAP{false};
    std::atomic<bool> running{false};

    // The weights in use (one per observation).
    const QVector<double> &currentWeights() const { return m_weights; }
    // Weighted sum of squared residuals; NaN when the length differs.
    double ssr(const QVector<double> &output) const;

    // How the last run ended; read it once the run is over.
    const RunOutcome &outcome() const { return m_outcome; }

public slots:
    RunOutcome run_3(int k_in);
    RunOutcome rerun();
    RunOutcome run();
    void abort();

signals:
    void calculationCompleted();
    // Emitted just before calculationCompleted.
    void runFinished(RunOutcome outcome);
    void currentIter(int);
    void currentModelEval(int);
    void additional_modelEval(int);
    // Emitted once at the start of every run, after abortASAP is cleared.
    void max_modelEval(int);
    void current_computation_result(compResult);

private:
    struct Iteration;

    void iterate(int k);
    void prepareIteration(int k);
    bool evaluateLivePoints(Iteration &iteration);
    void screenInitialPoints(Iteration &iteration);
    void storeIteration(Iteration &iteration);
    void acceptOrRejectSteps(Iteration &iteration);
    void recordIteration(const Iteration &iteration);
    void computeNextSteps(int k);
    void logLine(const QString &line);
    void logStatistics(int k, int improved);
    void writeIterationFiles();
    void finishRun();
    void seedRandomDraws();

    QVector<double> m_lambda;
    QVector<bool> m_alive;
    QVector<double> m_weights;
    std::mt19937_64 m_generator;
    qint64 m_startMs = 0;

    RunOutcome m_outcome;
    QElapsedTimer m_runTimer;
    qint64 m_evaluationsAtStart = 0;
    QString m_refusal; // the screening's reason to refuse the run
    bool m_failed = false;
    // Writes each iteration's files while the next one evaluates.
    ResultWriter m_writer;
};
