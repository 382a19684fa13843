#include "EngineRunner.h"

#include <QDeadlineTimer>
#include <QDebug>

namespace {

// How long the destructor waits for a stopped run before it says so; it then
// waits on, since a thread destroyed while running ends the program.
const int kStopWaitMs = 30000;

} // namespace

EngineRunner::EngineRunner(QObject *parent)
    : QObject(parent)
    , m_engine(std::make_unique<ambrel_method>())
{
    // The thread is a child so that an owner can find it among its objects;
    // as a member it is destroyed (and leaves the children) before the base.
    m_thread.setParent(this);
    m_thread.setObjectName(QStringLiteral("ambrel_method thread"));
    // Both handlers run on the worker thread, inside the run. They are
    // connected before any caller's connection, so the flags are up to date
    // before a queued runFinished or calculationCompleted is posted.
    //
    // A run clears the abort flag when it begins and then emits
    // max_modelEval: a stop requested earlier is applied again here.
    connect(
            m_engine.get(), &ambrel_method::max_modelEval, m_engine.get(),
            [this] {
                if (m_stopRequested)
                    m_engine->abortASAP = true;
            },
            Qt::DirectConnection);
    connect(
            m_engine.get(), &ambrel_method::runFinished, m_engine.get(), [this] { m_running = false; },
            Qt::DirectConnection);
}

EngineRunner::~EngineRunner()
{
    if (m_running) {
        requestStop();
        if (!waitForIdle(kStopWaitMs)) {
            qWarning() << "The engine has not stopped yet; waiting for its run to end";
            waitForIdle(-1);
        }
    }
    m_thread.quit();
    m_thread.wait();
    // The thread has finished: nothing else touches the engine now.
    m_engine.reset();
}

bool EngineRunner::start(bool restart)
{
    if (m_running)
        return false;
    m_stopRequested = false;
    m_running = true;
    if (m_engine->thread() != &m_thread)
        m_engine->moveToThread(&m_thread);
    if (!m_thread.isRunning())
        m_thread.start(QThread::InheritPriority);
    QMetaObject::invokeMethod(m_engine.get(), restart ? "rerun" : "run", Qt::QueuedConnection);
    return true;
}

void EngineRunner::requestStop()
{
    if (!m_running)
        return;
    m_stopRequested = true;
    m_engine->abort(); // a direct call: a queued one would wait for the run's end
}

bool EngineRunner::waitForIdle(int msecs)
{
    const QDeadlineTimer deadline(msecs < 0 ? -1 : msecs); // -1: never expires
    while (m_running) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(5);
    }
    return true;
}
