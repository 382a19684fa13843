#include "project/AtomicFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdio>

namespace {

const QString kPartialSuffix = QStringLiteral(".partial");

QString partialPath(const QString &path)
{
    const QFileInfo info(path);
    return info.path() + QStringLiteral("/.") + info.fileName() + kPartialSuffix;
}

} // namespace

bool writeFileAtomically(const QString &path, const char *data, std::size_t size)
{
    const QByteArray target = QFile::encodeName(path);
    const QByteArray partial = QFile::encodeName(partialPath(path));
    std::FILE *file = std::fopen(partial.constData(), "wb");
    if (!file)
        return false;
    // Unbuffered: the bytes go to the file in one write.
    std::setvbuf(file, nullptr, _IONBF, 0);
    const bool written = std::fwrite(data, 1, size, file) == size;
    const bool closed = std::fclose(file) == 0;
    if (written && closed && std::rename(partial.constData(), target.constData()) == 0)
        return true;
    std::remove(partial.constData());
    return false;
}

void removePartialFiles(const QString &folder)
{
    QDir dir(folder);
    const QStringList partial =
            dir.entryList({QStringLiteral(".*") + kPartialSuffix}, QDir::Files | QDir::Hidden | QDir::System);
    for (const QString &name : partial)
        dir.remove(name);
}
