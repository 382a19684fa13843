#include "project/AtomicFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdio>

#ifdef __linux__
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#endif

namespace {

const QString kPartialSuffix = QStringLiteral(".partial");

QString partialPath(const QString &path)
{
    const QFileInfo info(path);
    return info.path() + QStringLiteral("/.") + info.fileName() + kPartialSuffix;
}

// Through a named temporary file, renamed over the target.
bool writeThroughRename(const QByteArray &target, const QByteArray &partial, const char *data,
                        std::size_t size)
{
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

#ifdef __linux__
enum class Outcome { Written, Failed, Unsupported };

bool writeAll(int descriptor, const char *data, std::size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(descriptor, data, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data += written;
        size -= std::size_t(written);
    }
    return true;
}

// Gives the unnamed file its name: a new name by one link; an existing one
// by a link to the temporary name (freed first if a killed writer left it)
// and a rename over the target.
Outcome nameUnnamedFile(const char *procPath, const QByteArray &target, const QByteArray &partial)
{
    if (::linkat(AT_FDCWD, procPath, AT_FDCWD, target.constData(), AT_SYMLINK_FOLLOW) == 0)
        return Outcome::Written;
    if (errno != EEXIST)
        return errno == ENOENT || errno == EPERM ? Outcome::Unsupported : Outcome::Failed;
    ::unlink(partial.constData());
    if (::linkat(AT_FDCWD, procPath, AT_FDCWD, partial.constData(), AT_SYMLINK_FOLLOW) != 0)
        return Outcome::Failed;
    if (::rename(partial.constData(), target.constData()) == 0)
        return Outcome::Written;
    ::unlink(partial.constData());
    return Outcome::Failed;
}

// An unnamed file in the target's folder (O_TMPFILE), named when complete.
// This costs the directory one entry instead of a temporary one and a
// rename, and a killed process leaves nothing behind. Unsupported where the
// file system or a missing /proc does not allow it.
Outcome writeUnnamed(const QString &path, const QByteArray &target, const QByteArray &partial,
                     const char *data, std::size_t size)
{
    const QByteArray folder = QFile::encodeName(QFileInfo(path).path());
    const int descriptor = ::open(folder.constData(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
    if (descriptor < 0)
        return errno == ENOENT || errno == ENOTDIR || errno == EACCES ? Outcome::Failed
                                                                      : Outcome::Unsupported;
    Outcome outcome = Outcome::Failed;
    if (writeAll(descriptor, data, size)) {
        char procPath[40];
        std::snprintf(procPath, sizeof procPath, "/proc/self/fd/%d", descriptor);
        outcome = nameUnnamedFile(procPath, target, partial);
    }
    ::close(descriptor);
    return outcome;
}
#endif

} // namespace

bool writeFileAtomically(const QString &path, const char *data, std::size_t size)
{
    const QByteArray target = QFile::encodeName(path);
    const QByteArray partial = QFile::encodeName(partialPath(path));
#ifdef __linux__
    const Outcome outcome = writeUnnamed(path, target, partial, data, size);
    if (outcome != Outcome::Unsupported)
        return outcome == Outcome::Written;
#endif
    return writeThroughRename(target, partial, data, size);
}

bool writeTextAtomically(const QString &path, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    return writeFileAtomically(path, bytes.constData(), std::size_t(bytes.size()));
}

void removePartialFiles(const QString &folder)
{
    QDir dir(folder);
    const QStringList partial =
            dir.entryList({QStringLiteral(".*") + kPartialSuffix}, QDir::Files | QDir::Hidden | QDir::System);
    for (const QString &name : partial)
        dir.remove(name);
}
