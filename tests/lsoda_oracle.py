#!/usr/bin/python3
"""Reference runs of the Fortran LSODA through scipy's odeint.

With scalar rtol = atol = 1e-6, itask 1 and no Jacobian supplied. The
restarted problems are solved interval by interval, every interval as a new
problem (istate 1) started from the state reached at the end of the previous
one; the continued ones in one odeint call (istate 2 between output times).
Prints JSON: per problem, its mode and per interval the start and end states
and the step, right-hand-side and Jacobian counts (cumulative when continued).
"""
import json
import math
import sys

import numpy as np
from scipy.integrate import odeint


def robertson(y, t):
    return [-0.04 * y[0] + 1e4 * y[1] * y[2],
            0.04 * y[0] - 1e4 * y[1] * y[2] - 3e7 * y[1] * y[1],
            3e7 * y[1] * y[1]]


def damped_oscillator(y, t):
    return [y[1], -4.0 * y[0] - 0.1 * y[1]]


def van_der_pol(y, t):
    return [y[1], 100.0 * (1.0 - y[0] * y[0]) * y[1] - y[0]]


def stiff_cosine(y, t):
    return [-1000.0 * (y[0] - math.cos(t)) - math.sin(t), -0.5 * y[1]]


def van_der_pol_10(y, t):
    return [y[1], 10.0 * (1.0 - y[0] * y[0]) * y[1] - y[0]]


PROBLEMS = {
    "robertson": (robertson, [1.0, 0.0, 0.0], [0.0] + [0.4 * 10.0 ** k for k in range(7)]),
    "damped_oscillator": (damped_oscillator, [1.0, 0.0], [2.0 * k for k in range(11)]),
    "van_der_pol": (van_der_pol, [2.0, 0.0], [20.0 * k for k in range(11)]),
    "stiff_cosine": (stiff_cosine, [0.0, 1.0], [5.0 * k for k in range(5)]),
}

# Long enough to switch methods several times in both directions.
CONTINUED = {
    "van_der_pol_10": (van_der_pol_10, [2.0, 0.0], [1.0 * k for k in range(61)]),
}


def main():
    result = {}
    for name, (rhs, y0, times) in PROBLEMS.items():
        y = np.array(y0, dtype=float)
        intervals = []
        for t0, t1 in zip(times[:-1], times[1:]):
            sol, info = odeint(rhs, y, [t0, t1], rtol=1e-6, atol=1e-6, full_output=True)
            end = sol[1]
            intervals.append({
                "t0": t0, "t1": t1,
                "y0": [float(v) for v in y], "y1": [float(v) for v in end],
                "nst": int(info["nst"][0]), "nfe": int(info["nfe"][0]),
                "nje": int(info["nje"][0]), "mused": int(info["mused"][0]),
            })
            y = end.copy()
        result[name] = {"mode": "restart", "intervals": intervals}
    for name, (rhs, y0, times) in CONTINUED.items():
        sol, info = odeint(rhs, y0, times, rtol=1e-6, atol=1e-6, full_output=True)
        intervals = []
        for k in range(1, len(times)):
            intervals.append({
                "t0": times[k - 1], "t1": times[k],
                "y0": [float(v) for v in sol[k - 1]], "y1": [float(v) for v in sol[k]],
                "nst": int(info["nst"][k - 1]), "nfe": int(info["nfe"][k - 1]),
                "nje": int(info["nje"][k - 1]), "mused": int(info["mused"][k - 1]),
            })
        result[name] = {"mode": "continue", "intervals": intervals}
    json.dump(result, sys.stdout)


if __name__ == "__main__":
    main()
