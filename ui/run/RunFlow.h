#pragma once

#include "engine/EngineRunner.h"
#include "engine/RunSettings.h"
#include "ui/steps/RunControl.h"

#include <QObject>
#include <QStringList>

struct Workbench;
class QWidget;

// The run as the window sees it: checks the model, builds the engine's
// inputs from the steps' tables and settings, writes the log header, saves
// the project, starts the engine on its thread, follows it and returns the
// window to idle when it ends. Owns the engine and its thread (through
// EngineRunner).
class RunFlow : public QObject, public RunControl {
    Q_OBJECT
public:
    // window receives the engine's signals by the names of its slots.
    RunFlow(const Workbench &workbench, QWidget *window);
    // Stops a run in progress and waits for it (see EngineRunner).
    ~RunFlow() override;

    ambrel_method *engine() const { return m_runner.engine(); }

    bool isRunning() const override { return m_runner.isRunning(); }
    void requestAbort() override;
    void start(bool restart) override;
    void iterationResult(const compResult &result) override;
    void completed() override;

    // Stops a run in progress and waits for it to end, at most msecs.
    bool stopAndWait(int msecs);

private:
    // Refused: the window returns to idle with the reason in the log pane.
    void refuse(const QString &logText);
    bool readSettings(RunSettings &settings, QStringList &problems) const;
    QStringList logHeader(const RunSettings &settings) const;
    bool prepareRecord(bool restart, const RunSettings &settings);
    void connectEngine();
    void showLog(const QStringList &log);
    void returnToIdle();

    const Workbench &m_workbench;
    QWidget *m_window;
    EngineRunner m_runner;
};
