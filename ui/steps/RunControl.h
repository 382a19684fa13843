#pragma once

#include "project/compResult.h"

// What the window needs from whatever runs the engine: the run wiring
// implements it and installs it with RunStep::setRunControl.
class RunControl {
public:
    virtual ~RunControl() = default;

    // The engine's running flag.
    virtual bool isRunning() const = 0;
    // Sets the engine's abort request flag and nothing else; the engine reads
    // it at its next check.
    virtual void requestAbort() = 0;
    // A run from the window's tables and settings; restart continues from the
    // current result.
    virtual void start(bool restart) = 0;
    // The engine's signals, as the window receives them.
    virtual void iterationResult(const compResult &result) = 0;
    virtual void completed() = 0;
};
