#ifndef AMBREL_BENCH_LSODA_BENCH_PROBLEMS_H
#define AMBREL_BENCH_LSODA_BENCH_PROBLEMS_H

// The benchmark problems, written once on 0-based arrays; each contender
// wraps them in its own calling convention.

#include <array>

namespace lsodabench {

constexpr double kTolerance = 1e-6; // rtol and atol for every contender

// Robertson's chemical kinetics restarted at 0.4, 4, ..., 4e5.
constexpr int kRobertsonSize = 3;
constexpr std::array<double, 8> kRobertsonTimes = {0.0, 0.4, 4.0, 40.0, 400.0, 4e3, 4e4, 4e5};
constexpr std::array<double, 3> kRobertsonStart = {1.0, 0.0, 0.0};

inline void robertsonRhs(const double *y, double *ydot)
{
    ydot[0] = -0.04 * y[0] + 1e4 * y[1] * y[2];
    ydot[1] = 0.04 * y[0] - 1e4 * y[1] * y[2] - 3e7 * y[1] * y[1];
    ydot[2] = 3e7 * y[1] * y[1];
}

// A flow-limited whole-body PBPK model of an oral dose (amounts in mg,
// volumes in L, flows in L/h): gut lumen, venous and arterial blood, lung,
// brain, heart, muscle (with the rest of the body), adipose, skin, gut wall,
// liver and kidney. Hepatic and renal clearance act on the unbound
// concentration leaving the organ.
constexpr int kPbpkSize = 12;
constexpr std::array<double, 21> kPbpkTimes = {0.0,  0.25, 0.5,  1.0,  1.5,  2.0,  3.0,  4.0,  5.0,  6.0, 8.0,
                                               10.0, 12.0, 16.0, 20.0, 24.0, 28.0, 32.0, 36.0, 42.0, 48.0};
constexpr std::array<double, 12> kPbpkStart = {100.0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};

inline void pbpkRhs(const double *a, double *da)
{
    constexpr double qc = 390.0;
    constexpr double qBrain = 0.12 * qc, qHeart = 0.04 * qc, qMuscle = 0.335 * qc, qAdipose = 0.05 * qc,
                     qSkin = 0.05 * qc, qGut = 0.15 * qc, qHepaticArtery = 0.065 * qc, qKidney = 0.19 * qc;
    constexpr double qLiver = qGut + qHepaticArtery;
    constexpr double vVenous = 3.9, vArterial = 1.3, vLung = 1.2, vBrain = 1.4, vHeart = 0.33, vMuscle = 29.0,
                     vAdipose = 15.0, vSkin = 3.3, vGut = 1.7, vLiver = 1.8, vKidney = 0.31;
    constexpr double kpLung = 0.8, kpBrain = 0.5, kpHeart = 1.2, kpMuscle = 1.5, kpAdipose = 8.0,
                     kpSkin = 2.0, kpGut = 1.5, kpLiver = 3.0, kpKidney = 2.5;
    constexpr double bloodPlasma = 1.0, fu = 0.3, clIntrinsic = 60.0, clRenal = 6.0, ka = 1.2;

    const double cVenous = a[1] / vVenous;
    const double cArterial = a[2] / vArterial;
    // Concentrations in the blood leaving each organ.
    const double outLung = a[3] / vLung * bloodPlasma / kpLung;
    const double outBrain = a[4] / vBrain * bloodPlasma / kpBrain;
    const double outHeart = a[5] / vHeart * bloodPlasma / kpHeart;
    const double outMuscle = a[6] / vMuscle * bloodPlasma / kpMuscle;
    const double outAdipose = a[7] / vAdipose * bloodPlasma / kpAdipose;
    const double outSkin = a[8] / vSkin * bloodPlasma / kpSkin;
    const double outGut = a[9] / vGut * bloodPlasma / kpGut;
    const double outLiver = a[10] / vLiver * bloodPlasma / kpLiver;
    const double outKidney = a[11] / vKidney * bloodPlasma / kpKidney;

    const double absorption = ka * a[0];
    da[0] = -absorption;
    da[1] = qBrain * outBrain + qHeart * outHeart + qMuscle * outMuscle + qAdipose * outAdipose +
            qSkin * outSkin + qLiver * outLiver + qKidney * outKidney - qc * cVenous;
    da[2] = qc * (outLung - cArterial);
    da[3] = qc * (cVenous - outLung);
    da[4] = qBrain * (cArterial - outBrain);
    da[5] = qHeart * (cArterial - outHeart);
    da[6] = qMuscle * (cArterial - outMuscle);
    da[7] = qAdipose * (cArterial - outAdipose);
    da[8] = qSkin * (cArterial - outSkin);
    da[9] = absorption + qGut * (cArterial - outGut);
    da[10] = qHepaticArtery * cArterial + qGut * outGut - qLiver * outLiver -
             clIntrinsic * fu * outLiver / bloodPlasma;
    da[11] = qKidney * (cArterial - outKidney) - clRenal * fu * outKidney / bloodPlasma;
}

} // namespace lsodabench

#endif
