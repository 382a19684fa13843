// The stored-result reload: the input's parts become the result files of two
// iterations; the reload must keep only complete, consistently shaped ones.
#include "FuzzSupport.h"
#include "project/ResultStore.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const char *const files[] = {"X_0.csv",      "Y_0.csv",      "Parameter_0.csv", "R_0.csv",
                                        "lambda_0.csv", "X_1.csv",      "Y_1.csv",         "Parameter_1.csv",
                                        "R_1.csv",      "lambda_1.csv", "ODE_sol_1_0.csv", "sortIndex.csv",
                                        "ode_time.csv"};
    const int count = int(sizeof(files) / sizeof(files[0]));
    static QTemporaryDir dir;
    const QString results = dir.path() + QStringLiteral("/compResult/");
    QDir().mkpath(results);
    const QList<QByteArray> parts =
            QByteArray::fromRawData(reinterpret_cast<const char *>(data), int(size)).split('\x1e');
    for (int i = 0; i < count; ++i) {
        QFile::remove(results + files[i]);
        if (i < parts.size()) {
            QFile file(results + files[i]);
            if (file.open(QIODevice::WriteOnly))
                file.write(parts[i]);
        }
    }
    compResult result;
    QString note;
    if (!loadResult(dir.path(), result, {}, &note))
        return 0;
    // What a restart relies on: every history has the first cluster's points.
    const int n = result.X.first().size();
    for (const DoubleMatrix &m : result.X + result.Y + result.Parameter)
        if (m.size() != n)
            std::abort();
    for (const QVector<double> &row : result.SSR + result.lambda)
        if (row.size() != n)
            std::abort();
    if (result.Y.size() > result.X.size() || (!result.sortIndex.isEmpty() && result.sortIndex.size() != n))
        std::abort();
    for (int i : result.sortIndex)
        if (i < 0 || i >= n)
            std::abort();
    return 0;
}
