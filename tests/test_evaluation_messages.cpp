// The messages between the batch tool's MPI ranks: bit-exact doubles, and
// damaged messages refused instead of being read as points.
#include "batch/EvaluationMessages.h"

#include "test_support.h"

#include <QtTest>

#include <cstring>

namespace {

bool sameBits(double a, double b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

QVector<PointEvaluation> samplePoints()
{
    PointEvaluation point;
    point.parameters = {0.1, -0.0, 4.9e-324};
    point.solution = {{1.0 / 3.0, kNaN}, {1e300, -2.5}};
    point.outputs = {kNaN, std::numeric_limits<double>::infinity()};
    PointEvaluation failed;
    failed.parameters = {7.0};
    failed.solution = {{kNaN, kNaN}};
    failed.outputs = {kNaN};
    return {point, failed};
}

} // namespace

class TestEvaluationMessages : public QObject {
    Q_OBJECT

private slots:
    void resultsArriveBitForBit();
    void damagedResultsAreRefused();
    void fingerprintFollowsTheModelInputs();
};

void TestEvaluationMessages::resultsArriveBitForBit()
{
    const QVector<PointEvaluation> sent = samplePoints();
    QVector<PointEvaluation> received;
    QVERIFY(decodeResults(encodeResults(sent), sent.size(), received));
    QCOMPARE(received.size(), sent.size());
    for (int i = 0; i < sent.size(); ++i) {
        const QVector<double> a = sent[i].parameters + sent[i].outputs,
                              b = received[i].parameters + received[i].outputs;
        QCOMPARE(b.size(), a.size());
        for (int j = 0; j < a.size(); ++j)
            QVERIFY(sameBits(a[j], b[j]));
        QCOMPARE(received[i].solution.size(), sent[i].solution.size());
        for (int r = 0; r < sent[i].solution.size(); ++r)
            for (int c = 0; c < sent[i].solution[r].size(); ++c)
                QVERIFY(sameBits(received[i].solution[r][c], sent[i].solution[r][c]));
    }

    WorkChunk work{true, {{1.5, -0.0}, {kNaN, 2e-310}}}, back;
    QVERIFY(decodeWork(encodeWork(work), back));
    QVERIFY(back.stage2);
    QVERIFY(sameBits(back.rows[0][1], -0.0) && sameBits(back.rows[1][1], 2e-310) &&
            std::isnan(back.rows[1][0]));
}

void TestEvaluationMessages::damagedResultsAreRefused()
{
    const QByteArray bytes = encodeResults(samplePoints());
    QVector<PointEvaluation> points;
    QVERIFY(!decodeResults(bytes, 3, points)); // not the chunk's row count
    QVERIFY(!decodeResults(bytes.left(bytes.size() - 1), 2, points));
    QVERIFY(!decodeResults(bytes + QByteArray(1, '\0'), 2, points));
    QVERIFY(!decodeResults(QByteArray(), 2, points)); // a rank that could not evaluate
    // A huge row count in a short message is refused before anything is allocated.
    QByteArray huge = bytes;
    huge[0] = char(0x7f);
    QVERIFY(!decodeResults(huge, 2, points));

    SetupReply reply;
    QVERIFY(!decodeReply(encodeSetup({QByteArray(32, 'x'), 0.1, 1e-6, 100}), reply));
}

void TestEvaluationMessages::fingerprintFollowsTheModelInputs()
{
    ProjectInputs inputs;
    inputs.odeText = "dAdt = -k*A";
    fillTableCells(inputs.observations, StringMatrix{{"1", "A", "0.5"}});
    const QByteArray original = modelFingerprint(inputs);
    QCOMPARE(original.size(), 32);
    QCOMPARE(modelFingerprint(inputs), original);

    ProjectInputs changed = inputs;
    changed.observations.setCell(0, 0, "1.5");
    QVERIFY(modelFingerprint(changed) != original);
    changed = inputs;
    changed.observations.clearCell(0, 2); // an empty cell is not an empty text
    ProjectInputs emptyText = inputs;
    emptyText.observations.setCell(0, 2, "");
    QVERIFY(modelFingerprint(changed) != modelFingerprint(emptyText));
    // What does not define the evaluation leaves it alone.
    changed = inputs;
    fillTableCells(changed.initialCluster, DoubleMatrix{{1, 2}});
    changed.simulationTimePoints = "0:1:10";
    QCOMPARE(modelFingerprint(changed), original);
}

QTEST_GUILESS_MAIN(TestEvaluationMessages)
#include "test_evaluation_messages.moc"
