#pragma once

// Right-hand sides shared by the LSODA tests (1-based arrays).

#include "test_support.h"

#include <cmath>

namespace lsodatest {

// Robertson's chemical kinetics, stiff after a short transient.
inline void robertson(double, double *y, double *ydot, void *)
{
    ydot[1] = -0.04 * y[1] + 1e4 * y[2] * y[3];
    ydot[2] = 0.04 * y[1] - 1e4 * y[2] * y[3] - 3e7 * y[2] * y[2];
    ydot[3] = 3e7 * y[2] * y[2];
}

// y'' + 0.1 y' + 4 y = 0, non-stiff.
inline void dampedOscillator(double, double *y, double *ydot, void *)
{
    ydot[1] = y[2];
    ydot[2] = -4.0 * y[1] - 0.1 * y[2];
}

// Van der Pol with mu = 100 (alternately stiff and non-stiff) and mu = 10.
inline void vanDerPol(double, double *y, double *ydot, void *)
{
    ydot[1] = y[2];
    ydot[2] = 100.0 * (1.0 - y[1] * y[1]) * y[2] - y[1];
}
inline void vanDerPol10(double, double *y, double *ydot, void *)
{
    ydot[1] = y[2];
    ydot[2] = 10.0 * (1.0 - y[1] * y[1]) * y[2] - y[1];
}

// A stiff component relaxing onto cos t beside a slow decay.
inline void stiffCosine(double t, double *y, double *ydot, void *)
{
    ydot[1] = -1000.0 * (y[1] - std::cos(t)) - std::sin(t);
    ydot[2] = -0.5 * y[2];
}

} // namespace lsodatest
