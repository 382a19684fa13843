#include "project/ResultWriter.h"

#include "project/AtomicFile.h"
#include "project/ResultStore.h"

#include <QDebug>

ResultWriter::~ResultWriter()
{
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return !m_job && !m_busy; });
        m_stopping = true;
    }
    m_changed.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

void ResultWriter::write(const QString &projectFolder, const compResult &record)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_job && !m_busy; });
    m_job = Job{projectFolder, record};
    if (!m_thread.joinable())
        m_thread = std::thread([this] { run(); });
    lock.unlock();
    m_changed.notify_all();
}

void ResultWriter::wait()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_job && !m_busy; });
}

void ResultWriter::writeEndOfRun(const QString &projectFolder, const compResult &record)
{
    wait();
    const bool sameFolder = projectFolder == m_writtenFolder;
    writeEndOfRunFiles(projectFolder, record, sameFolder ? &m_written : nullptr);
    // Later runs start from other files (a restart may have rewritten some).
    m_written = compResult();
    m_writtenFolder.clear();
}

void ResultWriter::run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_job || m_stopping; });
        if (!m_job)
            return;
        const Job job = std::move(*m_job);
        m_job.reset();
        m_busy = true;
        lock.unlock();
        try {
            if (job.projectFolder != m_cleanedFolder) {
                removePartialFiles(resultFilePath(job.projectFolder, QString()));
                m_cleanedFolder = job.projectFolder;
            }
            const bool sameFolder = job.projectFolder == m_writtenFolder;
            writeIterationFiles(job.projectFolder, job.record, sameFolder ? &m_written : nullptr);
            m_written = job.record;
            m_writtenFolder = job.projectFolder;
        } catch (const std::exception &error) {
            qDebug() << "Error, unable to save:" << error.what();
        }
        lock.lock();
        m_busy = false;
        m_changed.notify_all();
    }
}
