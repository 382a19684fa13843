#include "engine/InitialCluster.h"

#include <QDebug>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

QString onlySuccessfulLine(int numAlive, int n)
{
    return QString("Only %1 out of %2 model evaluations were successful").arg(numAlive).arg(n);
}

// No space between n and "model": the log has always read so.
QString successfulLine(int numAlive, int n)
{
    return QString("%1 out of %2model evaluations were successful").arg(numAlive).arg(n);
}

struct Thresholds {
    double best = kNaN;
    double median = kNaN;
    bool stricter = false;

    // Exactly 1000 x best, or exactly the median, is rejected.
    bool accepts(double ssr) const
    {
        return !std::isnan(ssr) && ssr < 1000.0 * best && (!stricter || ssr < median);
    }
};

int applyAcceptance(const QVector<double> &ssr, const Thresholds &thresholds, QVector<bool> &accepted)
{
    int numAlive = 0;
    for (int i = 0; i < ssr.size(); ++i) {
        accepted[i] = thresholds.accepts(ssr[i]);
        numAlive += accepted[i] ? 1 : 0;
    }
    return numAlive;
}

QVector<double> ssrOfAll(const OutputRows &outputs, const std::function<double(const QVector<double> &)> &ssr)
{
    QVector<double> values(outputs.size());
    for (int i = 0; i < outputs.size(); ++i)
        values[i] = ssr ? ssr(outputs[i]) : kNaN;
    return values;
}

} // namespace

double sumOfSquaredResiduals(const QVector<double> &output, const QVector<double> &target)
{
    if (output.size() != target.size())
        return kNaN;
    double sum = 0.0;
    for (int j = 0; j < output.size(); ++j) {
        const double residual = output[j] - target[j];
        sum += residual * residual;
    }
    return sum;
}

double unitFromBits(std::uint64_t bits)
{
    const double u = double(bits) * 0x1p-64;
    return u < 1.0 ? u : std::nextafter(1.0, 0.0);
}

double uniformUnit(std::mt19937_64 &generator)
{
    return unitFromBits(generator());
}

InitialClusterScreeningResult screenInitialCluster(const InitialClusterScreeningInput &input,
                                                   std::mt19937_64 &generator)
{
    InitialClusterScreeningResult result;
    result.X0 = input.X0;
    result.outputs = input.outputs;
    const int n = int(input.X0.size1());
    const std::size_t p = input.X0.size2();
    result.outputs.resize(n);
    result.ssr = ssrOfAll(result.outputs, input.ssr);

    QVector<double> sorted;
    for (double value : result.ssr)
        if (!std::isnan(value))
            sorted << value;
    std::sort(sorted.begin(), sorted.end());
    qDebug() << "sortedtempSSR.size(): " << sorted.size();

    // Fixed for the whole screening: re-sampled points are judged against
    // the first evaluation.
    Thresholds thresholds;
    thresholds.stricter = input.stricterCriteria;
    if (!sorted.isEmpty()) {
        thresholds.best = sorted.first();
        thresholds.median = sorted[sorted.size() / 2];
    }

    result.accepted = QVector<bool>(n, false);
    int numAlive = applyAcceptance(result.ssr, thresholds, result.accepted);
    result.logLines << onlySuccessfulLine(numAlive, n);

    int numTried = 0;
    bool triesUsedUp = false;
    while (numAlive < n) {
        const std::size_t replacements = std::size_t(n - numAlive);
        // Parameter by parameter: all new points' first coordinate, then the
        // second, and so on.
        Matrix points(replacements, p);
        for (std::size_t q = 0; q < p; ++q) {
            const double lower = input.domainLower[q];
            const double width = input.domainUpper[q] - lower;
            for (std::size_t a = 0; a < replacements; ++a)
                points(a, q) = lower + uniformUnit(generator) * width;
        }

        const OutputRows newOutputs = input.evaluate ? input.evaluate(points) : OutputRows();
        qDebug() << "=======tempSSR=======";
        if (std::size_t(newOutputs.size()) == replacements) {
            std::size_t next = 0;
            for (int i = 0; i < n && next < replacements; ++i) {
                if (result.accepted[i])
                    continue;
                for (std::size_t q = 0; q < p; ++q)
                    result.X0(std::size_t(i), q) = points(next, q);
                result.outputs[i] = newOutputs[int(next)];
                if (!result.replacedRows.contains(i))
                    result.replacedRows << i;
                ++next;
            }
        }

        result.ssr = ssrOfAll(result.outputs, input.ssr);
        numAlive = applyAcceptance(result.ssr, thresholds, result.accepted);
        qDebug() << "numTried:" << numTried << "numAlive:" << numAlive << "median:" << thresholds.median;

        ++numTried;
        if (numTried > input.maxTries) {
            triesUsedUp = true;
            break;
        }
        result.logLines << onlySuccessfulLine(numAlive, n);
    }
    std::sort(result.replacedRows.begin(), result.replacedRows.end());
    result.rounds = numTried;
    result.numAlive = numAlive;

    if (triesUsedUp && numAlive == 0) {
        qDebug() << "numAlive: " << 0;
        result.refusal = "Model evaluation is not possible, double-check the model definition "
                         "and reasonableness of the initial cluster.";
        result.logLines << result.refusal;
    } else if (std::size_t(n) < p) {
        qDebug() << "numAlive: " << numAlive;
        result.refusal = "The number of points in initial cluster is too few, go back to Step "
                         "3-2 and increase it to be larger than number of parameters.";
        result.logLines << result.refusal << successfulLine(numAlive, n);
    } else if (std::size_t(numAlive) < p) {
        qDebug() << "numAlive: " << numAlive;
        result.refusal = "Too many model evaluations have not-a-number as results, please "
                         "shrink the size of the initial cluster.";
        result.logLines << result.refusal << successfulLine(numAlive, n);
    }
    result.abortASAP = !result.refusal.isEmpty();
    return result;
}
