// The per-iteration result files, written on a thread of their own so that
// the next iteration can evaluate meanwhile.
#pragma once

#include "project/compResult.h"

#include <QString>

#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

class ResultWriter {
public:
    ResultWriter() = default;
    ResultWriter(const ResultWriter &) = delete;
    ResultWriter &operator=(const ResultWriter &) = delete;
    // Writes what it was handed, then ends its thread.
    ~ResultWriter();

    // Hands the files of the record's newest iteration (writeIterationFiles)
    // to the writer thread and returns. It first waits until the files
    // handed over before are written, so the files never fall more than one
    // iteration behind. The record is copied, which is cheap: its histories
    // are shared until the engine changes them. The first hand-over for a
    // folder removes the temporary files a killed run left there.
    void write(const QString &projectFolder, const compResult &record);

    // Returns once everything handed over is written.
    void wait();

    // The end-of-run files (writeEndOfRunFiles), written on the calling
    // thread once everything handed over is written; files the writer wrote
    // already with the same content are left as they are.
    void writeEndOfRun(const QString &projectFolder, const compResult &record);

private:
    struct Job {
        QString projectFolder;
        compResult record;
    };

    void run();

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::optional<Job> m_job; // handed over, not yet written
    bool m_busy = false;      // a job is being written
    bool m_stopping = false;
    QString m_cleanedFolder;
    // The last record written and its folder (written by the writer thread
    // while busy, read by others only when it is idle).
    compResult m_written;
    QString m_writtenFolder;
    std::thread m_thread;
};
