#pragma once

#include "engine/ClusterEvaluation.h"
#include "engine/compResult.h"

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
// Lives on a worker thread of its own; run(), rerun() and run_3() execute
// there and return only when the run ends. abort() takes effect at once only
// when called directly (the flag is read between the steps of an iteration).
class ambrel_method : public QObject {
    Q_OBJECT
public:
    explicit ambrel_method(QObject *parent = nullptr);

    // Settings, set before a run.
    int numStage1Iterations = 40;
    int numStage2Iterations = 10;
    int totalIterations = 50; // recomputed at each start
    double initialLambda = 1.0;
    static constexpr double lambdaLimit = 1e10;
    int maxInitialTries = 100;
    bool stricterInitialSampling = false;
    double targetPerturbation = 0.1;
    bool uniformNeighbourhood = false;
    // One weight per observation for each iteration; an iteration without an
    // entry keeps the weights it has (all 1 at the start).
    QVector<QVector<double>> weightsPerIteration;
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

    std::atomic<bool> abortASAP{false};
    std::atomic<bool> running{false};

    // The weights in use (one per observation).
    const QVector<double> &currentWeights() const { return m_weights; }
    // Weighted sum of squared residuals; NaN when the length differs.
    double ssr(const QVector<double> &output) const;

public slots:
    void run_3(int k_in);
    void rerun();
    void run();
    void abort();

signals:
    void calculationCompleted();
    void currentIter(int);
    void currentModelEval(int);
    void additional_modelEval(int);
    void max_modelEval(int);
    void current_computation_result(compResult);

private:
    void iterate(int k);
    void logLine(const QString &line);
    void logStatistics(int k, int improved);
    void writeIterationFiles();
    void finishRun();

    QVector<double> m_lambda;
    QVector<bool> m_alive;
    QVector<double> m_weights;
    std::mt19937_64 m_generator;
    qint64 m_startMs = 0;
};
