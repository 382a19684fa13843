#pragma once

#include "engine/ambrel_method.h"

#include <QObject>
#include <QThread>

#include <atomic>
#include <memory>

// Owns the engine and the worker thread it runs on, so that a caller with an
// event loop (the window) starts, restarts and stops runs without blocking.
//
// Filling the engine's inputs: between runs the caller writes the engine's
// members (configureEngine, result, projectFolder) from its own thread, even
// though the engine lives on the worker thread after the first start. That is
// safe while isRunning() is false: the worker touches the engine only inside
// run() and rerun(), and both the queued start and the end of a run pass
// through a synchronising step (the event queue, the atomic running flag).
// Reading engine()->result after isRunning() turned false is safe likewise.
//
// Connections to the engine's signals are made on engine() itself; they
// reach receivers on other threads queued.
class EngineRunner : public QObject {
    Q_OBJECT
public:
    explicit EngineRunner(QObject *parent = nullptr);
    // Stops a run in progress, waits for it to end and stops the thread.
    ~EngineRunner() override;

    ambrel_method *engine() const { return m_engine.get(); }

    // Moves the engine to the worker thread (first start), starts the thread
    // with the inherited priority and invokes run() (restart false) or
    // rerun() there, queued. Returns false, doing nothing, while a run is in
    // progress.
    bool start(bool restart);
    // Sets the engine's abort flag directly; a stop requested before the
    // run has begun takes effect as soon as it begins.
    void requestStop();
    // True from start() until the run has ended (before runFinished and
    // calculationCompleted reach other threads).
    bool isRunning() const { return m_running; }
    // Blocks the calling thread until the run has ended or msecs have
    // passed (msecs < 0: without bound); true when no run is in progress.
    bool waitForIdle(int msecs);

private:
    std::unique_ptr<ambrel_method> m_engine;
    QThread m_thread;
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_stopRequested{false};
};
