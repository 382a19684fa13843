// Whole-file writes that a killed process cannot leave half done.
#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>

// Writes the bytes to a temporary file in the same folder and gives it the
// name path only when it is complete, so that path holds either its old
// content or all of the new one. On Linux the temporary file is unnamed
// (O_TMPFILE) and linked to its name: four system calls (open, write, link,
// close) for a new file. Elsewhere, and to replace an existing file, it is
// named as the file name with a leading "." and the suffix ".partial" and
// renamed over path. There is no flush to the disk: that guards against a
// power cut, not a killed process, and would cost more than the write
// itself. False when the file cannot be written (the temporary file is then
// removed).
bool writeFileAtomically(const QString &path, const char *data, std::size_t size);

// The same for a text, written as UTF-8.
bool writeTextAtomically(const QString &path, const QString &text);

// One folder receiving many files, each written as writeFileAtomically
// writes it. The folder is opened once, so that each file costs no lookup of
// the folder's path; the folder must exist when the object is made. write()
// may be called from several threads at once.
class AtomicFolder {
public:
    explicit AtomicFolder(const QString &folder);
    ~AtomicFolder();
    AtomicFolder(const AtomicFolder &) = delete;
    AtomicFolder &operator=(const AtomicFolder &) = delete;

    bool write(const QString &fileName, const char *data, std::size_t size) const;
    // Gives the file `existing` a second name (a hard link: one system call,
    // no new data), where the file system allows it. False when it does not,
    // or when either name is taken or missing.
    bool addName(const QString &existing, const QString &fileName) const;
    QString filePath(const QString &fileName) const { return m_folder + QLatin1Char('/') + fileName; }

private:
    QString m_folder;
    int m_folderFd = -1;   // the folder, opened for *at() calls
    int m_processFds = -1; // /proc/self/fd, through which an unnamed file gets its name
};

// Removes the temporary files a killed writer left in the folder.
void removePartialFiles(const QString &folder);
