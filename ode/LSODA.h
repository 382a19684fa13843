#ifndef AMBREL_ODE_LSODA_H
#define AMBREL_ODE_LSODA_H

#include <array>
#include <cstddef>
#include <cstdio>
#include <vector>

// LSODA: the Hindmarsh-Petzold integrator for y' = f(t, y) that switches
// automatically between the non-stiff Adams methods (orders 1 to 12, solved
// by functional iteration) and the stiff BDF methods (orders 1 to 5, solved
// by a chord Newton iteration on a dense difference-quotient Jacobian).
//
// Conventions
// - Every array that holds state components is 1-based: a vector for neq
//   components has neq + 1 elements and element 0 is unused. The right-hand
//   side receives pointers to such arrays and must write ydot[1..neq] from
//   y[1..neq].
// - All solver state lives in the object; an object is used by one thread.
//   Construction only sets constants: the work vectors are sized on the
//   first call of a problem and reused by later problems of the same size.
// - Messages are printed on the standard error stream (setMessageStream can
//   redirect them); failures are reported through istate, never thrown.
class LSODA {
public:
    // Right-hand side: fill ydot[1..neq] with f(t, y[1..neq]).
    using RhsFunction = void (*)(double t, double *y, double *ydot, void *data);

    // Optional integer inputs (read when iopt == 1):
    // ml, mu, ixpr, mxstep, mxhnil, mxordn, mxords.
    using IntOptions = std::array<int, 7>;
    // Optional real inputs: tcrit (itask 4, 5), then h0, hmax, hmin (iopt 1).
    using RealOptions = std::array<double, 4>;

    enum Method { NoMethod = 0, Adams = 1, Bdf = 2 };

    LSODA();

    // Integrates from *t to tout with itask 1, no optional inputs and the
    // internally generated dense Jacobian, with scalar tolerances.
    // y holds the neq starting values (0-based); on return yout (resized to
    // neq + 1, yout[0] = 0) holds the 1-based state at *t. On success *t ==
    // tout and *istate == 2. Set *istate to 1 to start a new problem.
    void lsoda_update(RhsFunction f, std::size_t neq, const std::vector<double> &y, std::vector<double> &yout,
                      double *t, double tout, int *istate, void *data, double rtol = 1e-6,
                      double atol = 1e-6);

    // The full driver. y is 1-based (neq + 1 elements) and is overwritten by
    // the solution at the returned *t. itask 1..5, istate 1..3 on input,
    // iopt 0 or 1, jt 1, 2, 4 or 5 (only 2, the internal dense Jacobian, can
    // take stiff steps; the others pass the input check and are refused when
    // the stiff method needs a Jacobian). Tolerances come from setTolerances.
    void lsoda(RhsFunction f, std::size_t neq, std::vector<double> &y, double *t, double tout, int itask,
               int *istate, int iopt, int jt, const IntOptions &iworks, const RealOptions &rworks,
               void *data);

    // itol 1: scalar rtol and atol; 2: scalar rtol, per-component atol;
    // 3: per-component rtol, scalar atol; 4: both per-component. Scalars are
    // read from element 1; per-component vectors have neq + 1 elements.
    void setTolerances(int itol, const std::vector<double> &rtol, const std::vector<double> &atol);

    // Where messages go; stderr unless redirected (tests capture them).
    void setMessageStream(std::FILE *stream) { messageStream_ = stream; }

    // Statistics of the current problem.
    int steps() const { return nst_; }                   // successful steps
    int rhsEvaluations() const { return nfe_; }          // calls of f, Jacobian ones included
    int jacobianEvaluations() const { return nje_; }     // Jacobian evaluations (and LU factorisations)
    int lastOrder() const { return nqu_; }               // order of the last successful step
    int currentOrder() const { return nq_; }             // order to be attempted next
    Method lastMethod() const { return Method(mused_); } // method of the last successful step
    Method currentMethod() const { return Method(meth_); }
    double lastStepSize() const { return hu_; }
    double nextStepSize() const { return h_; }
    double currentTime() const { return tn_; }             // how far the integration has gone
    double switchTime() const { return tsw_; }             // time of the last method switch
    double toleranceScaleFactor() const { return tolsf_; } // after istate -2 (or -3 at start)
    int largestErrorComponent() const { return imxer_; }   // after istate -4 or -5
    int illegalInputCount() const { return illin_; }

private:
    // One step of the method (the published stoda), kflag 0, -1, -2 or -3.
    void stoda(std::size_t neq, double *y, RhsFunction f, void *data);
    // Rescales the Nordsieck array for the step ratio rh and sets h.
    void rescale(double rh);
    // Copies the method coefficients of order nq into el and updates rc.
    void resetCoefficients();
    void retractPrediction();
    // k-th derivative of the interpolating polynomial at t into dky[1..n].
    void intdy(double t, int k, double *dky, int *iflag);
    void prja(std::size_t neq, double *y, RhsFunction f, void *data);
    void solsy(double *x);
    void cfode(int meth);
    void ewset(const double *ycur);
    // LU factorisation with partial pivoting and the matching solve.
    static void dgefa(std::vector<std::vector<double>> &a, int n, std::vector<int> &ipvt, int *info);
    static void dgesl(const std::vector<std::vector<double>> &a, int n, const std::vector<int> &ipvt,
                      double *b);
    // Weighted max-norm of a vector and the consistent matrix norm; w holds
    // reciprocal error weights.
    static double vmnorm(int n, const double *v, const double *w);
    static double fnorm(int n, const std::vector<std::vector<double>> &a, const double *w);

    void message(const char *format, ...) const
#if defined(__GNUC__)
            __attribute__((format(printf, 2, 3)))
#endif
            ;
    // Illegal input: counts it and sets istate -3, or aborts the run after 5.
    void illegalInput(int *istate);
    void allocate(int n, int lenyh);

    std::FILE *messageStream_;

    // Tolerances (1-based per-component vectors or scalars at element 1).
    int itol_ = 1;
    std::vector<double> rtol_, atol_;

    // Work arrays, all 1-based.
    std::vector<std::vector<double>> yh_; // Nordsieck history: yh_[j][i], j = 1..lenyh
    std::vector<std::vector<double>> wm_; // iteration matrix by columns: wm_[j][i]
    std::vector<int> ipvt_;
    std::vector<double> ewt_; // reciprocal error weights once set
    std::vector<double> savf_;
    std::vector<double> acor_;

    // Method coefficients, filled by cfode when a problem starts (left
    // uninitialised here to keep construction cheap).
    double el_[14];
    double elco_[13][14];
    double tesco_[13][4];
    double cm1_[13];
    double cm2_[6];
    static const double sm1_[13];
    static const int mord_[3];

    // Driver state.
    int illin_ = 0, init_ = 0, nhnil_ = 0, nslast_ = 0, nyh_ = 0, lenyh_ = 0;
    int ixpr_ = 0, mxstep_ = 500, mxhnil_ = 10, mxordn_ = 12, mxords_ = 5;
    int ml_ = 0, mu_ = 0, jtyp_ = 2, imxer_ = 0;
    double tcrit_ = 0.0, tsw_ = 0.0, tolsf_ = 0.0;

    // Step state.
    double ccmax_ = 0.3, el0_ = 1.0, h_ = 0.0, hmin_ = 0.0, hmxi_ = 0.0, hu_ = 0.0, rc_ = 0.0;
    double tn_ = 0.0, uround_, srur_;
    double conit_ = 0.0, crate_ = 0.0, hold_ = 0.0, rmax_ = 0.0;
    double pdest_ = 0.0, pdlast_ = 0.0, ratio_ = 5.0, pdnorm_ = 0.0;
    int icf_ = 0, ierpj_ = 0, iersl_ = 0, jcur_ = 0, jstart_ = 0, kflag_ = 0, l_ = 0;
    int meth_ = 0, miter_ = 0, maxord_ = 0, maxcor_ = 3, msbp_ = 20, mxncf_ = 10;
    int n_ = 0, nq_ = 0, nst_ = 0, nfe_ = 0, nje_ = 0, nqu_ = 0;
    int ialth_ = 0, ipup_ = 0, lmax_ = 0, nslp_ = 0, icount_ = 0, irflag_ = 0, mused_ = 0;
    int iredo_ = 0;
};

#endif // AMBREL_ODE_LSODA_H
