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

QString partialName(const QString &fileName)
{
    return QStringLiteral(".") + fileName + kPartialSuffix;
}

QString partialPath(const QString &path)
{
    const QFileInfo info(path);
    return info.path() + QLatin1Char('/') + partialName(info.fileName());
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

// Where an unnamed file is made and named: the folder (a descriptor with
// "." as the folder's name and bare file names, or AT_FDCWD with paths), and
// the folder in which the process's descriptors appear as links.
struct UnnamedFileSite {
    int folderFd;
    const char *folder;
    int processFds; // /proc/self/fd opened, or AT_FDCWD for the path
};

int linkDescriptor(const UnnamedFileSite &site, int descriptor, const char *name)
{
    char link[40];
    if (site.processFds == AT_FDCWD)
        std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    else
        std::snprintf(link, sizeof link, "%d", descriptor);
    return ::linkat(site.processFds, link, site.folderFd, name, AT_SYMLINK_FOLLOW);
}

// Gives the unnamed file its name: a new name by one link; an existing one
// by a link to the temporary name (freed first if a killed writer left it)
// and a rename over the target.
Outcome nameUnnamedFile(const UnnamedFileSite &site, int descriptor, const char *target, const char *partial)
{
    if (linkDescriptor(site, descriptor, target) == 0)
        return Outcome::Written;
    if (errno != EEXIST)
        return errno == ENOENT || errno == EPERM ? Outcome::Unsupported : Outcome::Failed;
    ::unlinkat(site.folderFd, partial, 0);
    if (linkDescriptor(site, descriptor, partial) != 0)
        return Outcome::Failed;
    if (::renameat(site.folderFd, partial, site.folderFd, target) == 0)
        return Outcome::Written;
    ::unlinkat(site.folderFd, partial, 0);
    return Outcome::Failed;
}

// An unnamed file in the target's folder (O_TMPFILE), named when complete.
// This costs the directory one entry instead of a temporary one and a
// rename, and a killed process leaves nothing behind. Unsupported where the
// file system or a missing /proc does not allow it.
Outcome writeUnnamed(const UnnamedFileSite &site, const char *target, const char *partial, const char *data,
                     std::size_t size)
{
    const int descriptor = ::openat(site.folderFd, site.folder, O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
    if (descriptor < 0)
        return errno == ENOENT || errno == ENOTDIR || errno == EACCES ? Outcome::Failed
                                                                      : Outcome::Unsupported;
    Outcome outcome = Outcome::Failed;
    if (writeAll(descriptor, data, size))
        outcome = nameUnnamedFile(site, descriptor, target, partial);
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
    const QByteArray folder = QFile::encodeName(QFileInfo(path).path());
    const UnnamedFileSite site{AT_FDCWD, folder.constData(), AT_FDCWD};
    const Outcome outcome = writeUnnamed(site, target.constData(), partial.constData(), data, size);
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

AtomicFolder::AtomicFolder(const QString &folder)
    : m_folder(folder)
{
#ifdef __linux__
    m_folderFd = ::open(QFile::encodeName(folder).constData(), O_DIRECTORY | O_PATH | O_CLOEXEC);
    if (m_folderFd >= 0)
        m_processFds = ::open("/proc/self/fd", O_DIRECTORY | O_PATH | O_CLOEXEC);
#endif
}

AtomicFolder::~AtomicFolder()
{
#ifdef __linux__
    if (m_processFds >= 0)
        ::close(m_processFds);
    if (m_folderFd >= 0)
        ::close(m_folderFd);
#endif
}

bool AtomicFolder::write(const QString &fileName, const char *data, std::size_t size) const
{
#ifdef __linux__
    if (m_folderFd >= 0 && m_processFds >= 0) {
        const UnnamedFileSite site{m_folderFd, ".", m_processFds};
        const Outcome outcome =
                writeUnnamed(site, QFile::encodeName(fileName).constData(),
                             QFile::encodeName(partialName(fileName)).constData(), data, size);
        if (outcome != Outcome::Unsupported)
            return outcome == Outcome::Written;
    }
#endif
    const QString path = filePath(fileName);
    return writeThroughRename(QFile::encodeName(path), QFile::encodeName(partialPath(path)), data, size);
}

bool AtomicFolder::addName(const QString &existing, const QString &fileName) const
{
#ifdef __linux__
    return m_folderFd >= 0 && ::linkat(m_folderFd, QFile::encodeName(existing).constData(), m_folderFd,
                                       QFile::encodeName(fileName).constData(), 0) == 0;
#else
    Q_UNUSED(existing)
    Q_UNUSED(fileName)
    return false;
#endif
}

void removePartialFiles(const QString &folder)
{
    QDir dir(folder);
    const QStringList partial =
            dir.entryList({QStringLiteral(".*") + kPartialSuffix}, QDir::Files | QDir::Hidden | QDir::System);
    for (const QString &name : partial)
        dir.remove(name);
}
