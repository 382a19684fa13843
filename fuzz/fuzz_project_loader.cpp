// The project loader: the input's parts become the model files of a folder.
#include "FuzzSupport.h"
#include "project/ProjectModel.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const char *const files[] = {"ODE_expression.txt",
                                        "ODE_auxiliary_function_expression.txt",
                                        "parameter_specifications.csv",
                                        "dose_events.txt",
                                        "observations.txt",
                                        "initial_cluster.txt",
                                        "reparaDefinition.txt",
                                        "reparaInverse.txt"};
    static QTemporaryDir dir;
    const QString model = dir.path() + QStringLiteral("/model/");
    QDir().mkpath(model);
    // Raw bytes, so that NUL bytes and invalid UTF-8 reach the loader.
    const QList<QByteArray> parts =
            QByteArray::fromRawData(reinterpret_cast<const char *>(data), int(size)).split('\x1e');
    for (int i = 0; i < 8; ++i) {
        QFile::remove(model + files[i]);
        if (i < parts.size()) {
            QFile file(model + files[i]);
            if (file.open(QIODevice::WriteOnly))
                file.write(parts[i]);
        }
    }
    loadProjectModel(dir.path());
    return 0;
}
