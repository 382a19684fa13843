#include "ode/LSODA.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

// A broken calling contract (wrong array size) is a programming error, not
// an input problem: it stops the program in every build type.
#define LSODA_REQUIRE(condition)                                                                             \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            std::fprintf(stderr, "LSODA: requirement failed: %s\n", #condition);                             \
            std::abort();                                                                                    \
        }                                                                                                    \
    } while (0)

LSODA::LSODA()
    : messageStream_(stderr)
    , uround_(DBL_EPSILON)
    , srur_(std::sqrt(DBL_EPSILON))
{
}

void LSODA::message(const char *format, ...) const
{
    if (!messageStream_)
        return;
    va_list args;
    va_start(args, format);
    std::vfprintf(messageStream_, format, args);
    va_end(args);
}

void LSODA::illegalInput(int *istate)
{
    if (illin_ == 5) {
        message("[lsoda] repeated occurrence of illegal input. run aborted.. apparent infinite loop.\n");
        return;
    }
    ++illin_;
    *istate = -3;
}

void LSODA::setTolerances(int itol, const std::vector<double> &rtol, const std::vector<double> &atol)
{
    itol_ = itol;
    rtol_ = rtol;
    atol_ = atol;
}

void LSODA::allocate(int n, int lenyh)
{
    if (int(yh_.size()) != lenyh + 1 || (!yh_.empty() && int(yh_[0].size()) != n + 1))
        yh_.assign(lenyh + 1, std::vector<double>(n + 1, 0.0));
    ewt_.resize(n + 1);
    savf_.resize(n + 1);
    acor_.resize(n + 1);
}

void LSODA::lsoda_update(RhsFunction f, std::size_t neq, const std::vector<double> &y,
                         std::vector<double> &yout, double *t, double tout, int *istate, void *data,
                         double rtol, double atol)
{
    LSODA_REQUIRE(y.size() >= neq);
    yout.resize(neq + 1);
    yout[0] = 0.0;
    std::copy(y.begin(), y.begin() + std::ptrdiff_t(neq), yout.begin() + 1);

    itol_ = 4;
    rtol_.assign(neq + 1, rtol);
    atol_.assign(neq + 1, atol);
    rtol_[0] = 0.0;
    atol_[0] = 0.0;

    static const IntOptions noIntOptions = {0, 0, 0, 0, 0, 0, 0};
    static const RealOptions noRealOptions = {0.0, 0.0, 0.0, 0.0};
    lsoda(f, neq, yout, t, tout, 1, istate, 0, 2, noIntOptions, noRealOptions, data);
}

void LSODA::lsoda(RhsFunction f, std::size_t neq, std::vector<double> &y, double *t, double tout, int itask,
                  int *istate, int iopt, int jt, const IntOptions &iworks, const RealOptions &rworks,
                  void *data)
{
    LSODA_REQUIRE(neq + 1 == y.size());

    // Checks of istate and itask, done on every call.
    if (*istate < 1 || *istate > 3) {
        message("[lsoda] illegal istate = %d illegal\n", *istate);
        illegalInput(istate);
        return;
    }
    if (itask < 1 || itask > 5) {
        message("[lsoda] illegal itask = %d\n", itask);
        illegalInput(istate);
        return;
    }
    if (*istate == 1)
        init_ = 0;
    else if (init_ == 0) {
        message("[lsoda] istate > 1 but lsoda not initialized\n");
        illegalInput(istate);
        return;
    }

    double h0 = 0.0;
    bool ihit = false;
    int iflag = 0;
    // Where the main loop enters: the first step skips the weight update.
    bool firstStep = false;

    if (*istate != 2) {
        // New problem or changed inputs: check every input.
        if (neq < 1) {
            message("[lsoda] neq = %d is less than 1.\n", int(neq));
            illegalInput(istate);
            return;
        }
        if (*istate == 3 && int(neq) > n_) {
            message("[lsoda] istate = 3 and neq increased\n");
            illegalInput(istate);
            return;
        }
        const int n = int(neq);
        n_ = n;
        if (itol_ < 1 || itol_ > 4) {
            message("[lsoda] itol = %d illegal\n", itol_);
            illegalInput(istate);
            return;
        }
        if (iopt < 0 || iopt > 1) {
            message("[lsoda] iopt = %d illegal\n", iopt);
            illegalInput(istate);
            return;
        }
        if (jt == 3 || jt < 1 || jt > 5) {
            message("[lsoda] jt = %d illegal\n", jt);
            illegalInput(istate);
            return;
        }
        jtyp_ = jt;
        if (jt > 2) {
            ml_ = iworks[0];
            mu_ = iworks[1];
            if (ml_ < 0 || ml_ >= n) {
                message("[lsoda] ml = %d not between 1 and neq\n", ml_);
                illegalInput(istate);
                return;
            }
            if (mu_ < 0 || mu_ >= n) {
                message("[lsoda] mu = %d not between 1 and neq\n", mu_);
                illegalInput(istate);
                return;
            }
        }
        if (iopt == 0) {
            ixpr_ = 0;
            mxstep_ = 500;
            mxhnil_ = 10;
            hmxi_ = 0.0;
            hmin_ = 0.0;
            if (*istate == 1) {
                h0 = 0.0;
                mxordn_ = mord_[1];
                mxords_ = mord_[2];
            }
        } else {
            ixpr_ = iworks[2];
            if (ixpr_ < 0 || ixpr_ > 1) {
                message("[lsoda] ixpr = %d is illegal\n", ixpr_);
                illegalInput(istate);
                return;
            }
            mxstep_ = iworks[3];
            if (mxstep_ < 0) {
                message("[lsoda] mxstep < 0\n");
                illegalInput(istate);
                return;
            }
            if (mxstep_ == 0)
                mxstep_ = 500;
            mxhnil_ = iworks[4];
            if (mxhnil_ < 0) {
                message("[lsoda] mxhnil < 0\n");
                illegalInput(istate);
                return;
            }
            if (mxhnil_ == 0)
                mxhnil_ = 10;
            if (*istate == 1) {
                h0 = rworks[1];
                mxordn_ = iworks[5];
                if (mxordn_ < 0) {
                    message("[lsoda] mxordn = %d is less than 0\n", mxordn_);
                    illegalInput(istate);
                    return;
                }
                if (mxordn_ == 0)
                    mxordn_ = 100;
                mxordn_ = std::min(mxordn_, mord_[1]);
                mxords_ = iworks[6];
                if (mxords_ < 0) {
                    message("[lsoda] mxords = %d is less than 0\n", mxords_);
                    illegalInput(istate);
                    return;
                }
                if (mxords_ == 0)
                    mxords_ = 100;
                mxords_ = std::min(mxords_, mord_[2]);
                if ((tout - *t) * h0 < 0.0) {
                    message("[lsoda] tout = %g behind t = %g. integration direction is given by %g\n", tout,
                            *t, h0);
                    illegalInput(istate);
                    return;
                }
            }
            const double hmax = rworks[2];
            if (hmax < 0.0) {
                message("[lsoda] hmax < 0.\n");
                illegalInput(istate);
                return;
            }
            hmxi_ = hmax > 0.0 ? 1.0 / hmax : 0.0;
            hmin_ = rworks[3];
            if (hmin_ < 0.0) {
                message("[lsoda] hmin < 0.\n");
                illegalInput(istate);
                return;
            }
        }

        if (*istate == 1) {
            meth_ = 1;
            nyh_ = n;
            lenyh_ = 1 + std::max(mxordn_, mxords_);
            allocate(nyh_, lenyh_);
        }
        LSODA_REQUIRE(int(yh_.size()) == lenyh_ + 1);
        LSODA_REQUIRE(int(yh_[0].size()) == nyh_ + 1);

        const bool perComponentRtol = itol_ >= 3, perComponentAtol = itol_ == 2 || itol_ == 4;
        LSODA_REQUIRE(rtol_.size() >= (perComponentRtol ? std::size_t(n) + 1 : 2));
        LSODA_REQUIRE(atol_.size() >= (perComponentAtol ? std::size_t(n) + 1 : 2));
        double rtoli = rtol_[1], atoli = atol_[1];
        for (int i = 1; i <= n; ++i) {
            if (perComponentRtol)
                rtoli = rtol_[i];
            if (perComponentAtol)
                atoli = atol_[i];
            if (rtoli < 0.0) {
                message("[lsoda] rtol = %g is less than 0.\n", rtoli);
                illegalInput(istate);
                return;
            }
            if (atoli < 0.0) {
                message("[lsoda] atol = %g is less than 0.\n", atoli);
                illegalInput(istate);
                return;
            }
        }

        if (*istate == 3) {
            // Changed inputs: the step routine re-reads its parameters.
            jstart_ = -1;
            if (n < nyh_) {
                // neq was reduced: clear the unused history rows.
                for (int j = l_ + 1; j <= maxord_ + 1; ++j)
                    std::fill(yh_[j].begin(), yh_[j].end(), 0.0);
            }
        } else {
            // First call of a problem.
            if (tout == *t) {
                message("[lsoda] tout too close to t to start integration\n");
                illegalInput(istate);
                return;
            }
            uround_ = DBL_EPSILON;
            srur_ = std::sqrt(uround_);
            tn_ = *t;
            tsw_ = *t;
            maxord_ = mxordn_;
            if (itask == 4 || itask == 5) {
                tcrit_ = rworks[0];
                if ((tcrit_ - tout) * (tout - *t) < 0.0) {
                    message("[lsoda] itask = 4 or 5 and tcrit behind tout\n");
                    illegalInput(istate);
                    return;
                }
                if (h0 != 0.0 && (*t + h0 - tcrit_) * h0 > 0.0)
                    h0 = tcrit_ - *t;
            }
            jstart_ = 0;
            nhnil_ = 0;
            nst_ = 0;
            nje_ = 0;
            nslast_ = 0;
            hu_ = 0.0;
            nqu_ = 0;
            mused_ = 0;
            miter_ = 0;
            ccmax_ = 0.3;
            maxcor_ = 3;
            msbp_ = 20;
            mxncf_ = 10;
            imxer_ = 0;
            tolsf_ = 0.0;

            f(*t, y.data(), yh_[2].data(), data);
            nfe_ = 1;
            std::copy(y.begin() + 1, y.end(), yh_[1].begin() + 1);
            nq_ = 1;
            h_ = 1.0;
            ewset(yh_[1].data());
            for (int i = 1; i <= n; ++i) {
                if (ewt_[i] <= 0.0) {
                    message("[lsoda] ewt[%d] = %g <= 0.\n", i, ewt_[i]);
                    illegalInput(istate);
                    return;
                }
                ewt_[i] = 1.0 / ewt_[i];
            }

            if (h0 == 0.0) {
                // First step from tout - t and the tolerances:
                // h0^-2 = 1/(tol w0^2) + tol |f(t0, y0)|^2, with w0 = max(|t|, |tout|).
                const double tdist = std::fabs(tout - *t);
                const double w0 = std::max(std::fabs(*t), std::fabs(tout));
                if (tdist < 2.0 * uround_ * w0) {
                    message("[lsoda] tout too close to t to start integration\n");
                    illegalInput(istate);
                    return;
                }
                double tol = rtol_[1];
                if (itol_ > 2)
                    for (int i = 1; i <= n; ++i)
                        tol = std::max(tol, rtol_[i]);
                if (tol <= 0.0) {
                    double atolj = atol_[1];
                    for (int i = 1; i <= n; ++i) {
                        if (perComponentAtol)
                            atolj = atol_[i];
                        const double ayi = std::fabs(y[i]);
                        if (ayi != 0.0)
                            tol = std::max(tol, atolj / ayi);
                    }
                }
                tol = std::max(tol, 100.0 * uround_);
                tol = std::min(tol, 0.001);
                double sum = vmnorm(n, yh_[2].data(), ewt_.data());
                sum = 1.0 / (tol * w0 * w0) + tol * (sum * sum);
                h0 = 1.0 / std::sqrt(sum);
                h0 = std::min(h0, tdist);
                h0 = std::copysign(h0, tout - *t);
            }
            const double rh = std::fabs(h0) * hmxi_;
            if (rh > 1.0)
                h0 /= rh;
            h_ = h0;
            for (int i = 1; i <= n; ++i)
                yh_[2][i] *= h0;
            firstStep = true;
        }
    }

    const int n = n_;
    // Copies the current solution to the caller and sets the statistics.
    auto returnWithSolution = [&]() {
        std::copy(yh_[1].begin() + 1, yh_[1].begin() + 1 + n, y.begin() + 1);
        *t = tn_;
        if ((itask == 4 || itask == 5) && ihit)
            *t = tcrit_;
        *istate = 2;
        illin_ = 0;
    };
    auto returnInterpolated = [&]() {
        *t = tout;
        *istate = 2;
        illin_ = 0;
    };
    auto returnOnFailure = [&](int state) {
        std::copy(yh_[1].begin() + 1, yh_[1].begin() + 1 + n, y.begin() + 1);
        *t = tn_;
        *istate = state;
        illin_ = 0;
    };
    auto returnOnStepFailure = [&](int state) {
        // Report the component with the largest weighted local error.
        double big = 0.0;
        imxer_ = 1;
        for (int i = 1; i <= n; ++i) {
            const double size = std::fabs(acor_[i] * ewt_[i]);
            if (big < size) {
                big = size;
                imxer_ = i;
            }
        }
        returnOnFailure(state);
    };

    if (!firstStep) {
        // Continuation: see whether tout or tcrit is already reached.
        nslast_ = nst_;
        switch (itask) {
        case 1:
            if ((tn_ - tout) * h_ >= 0.0) {
                intdy(tout, 0, y.data(), &iflag);
                if (iflag != 0) {
                    message("[lsoda] trouble from intdy, itask = %d, tout = %g\n", itask, tout);
                    illegalInput(istate);
                    return;
                }
                returnInterpolated();
                return;
            }
            break;
        case 2:
            break;
        case 3: {
            const double tp = tn_ - hu_ * (1.0 + 100.0 * uround_);
            if ((tp - tout) * h_ > 0.0) {
                message("[lsoda] itask = %d and tout behind tcur - hu\n", itask);
                illegalInput(istate);
                return;
            }
            if ((tn_ - tout) * h_ >= 0.0) {
                returnWithSolution();
                return;
            }
            break;
        }
        case 4:
        case 5: {
            tcrit_ = rworks[0];
            if ((tn_ - tcrit_) * h_ > 0.0) {
                message("[lsoda] itask = 4 or 5 and tcrit behind tcur\n");
                illegalInput(istate);
                return;
            }
            if (itask == 4) {
                if ((tcrit_ - tout) * h_ < 0.0) {
                    message("[lsoda] itask = 4 or 5 and tcrit behind tout\n");
                    illegalInput(istate);
                    return;
                }
                if ((tn_ - tout) * h_ >= 0.0) {
                    intdy(tout, 0, y.data(), &iflag);
                    if (iflag != 0) {
                        message("[lsoda] trouble from intdy, itask = %d, tout = %g\n", itask, tout);
                        illegalInput(istate);
                        return;
                    }
                    returnInterpolated();
                    return;
                }
            }
            const double hmx = std::fabs(tn_) + std::fabs(h_);
            ihit = std::fabs(tn_ - tcrit_) <= 100.0 * uround_ * hmx;
            if (ihit) {
                returnWithSolution();
                return;
            }
            const double tnext = tn_ + h_ * (1.0 + 4.0 * uround_);
            if ((tnext - tcrit_) * h_ > 0.0) {
                h_ = (tcrit_ - tn_) * (1.0 - 4.0 * uround_);
                if (*istate == 2 && jstart_ >= 0)
                    jstart_ = -2;
            }
            break;
        }
        }
    }

    // Main loop: one step per pass until the task is done or a step fails.
    for (;;) {
        if (!firstStep) {
            if (nst_ - nslast_ >= mxstep_) {
                message("[lsoda] %d steps taken before reaching tout\n", mxstep_);
                returnOnFailure(-1);
                return;
            }
            ewset(yh_[1].data());
            for (int i = 1; i <= n; ++i) {
                if (ewt_[i] <= 0.0) {
                    message("[lsoda] ewt[%d] = %g <= 0.\n", i, ewt_[i]);
                    returnOnFailure(-6);
                    return;
                }
                ewt_[i] = 1.0 / ewt_[i];
            }
        }
        firstStep = false;

        tolsf_ = uround_ * vmnorm(n, yh_[1].data(), ewt_.data());
        if (tolsf_ > 0.01) {
            tolsf_ *= 200.0;
            if (nst_ == 0) {
                message("lsoda -- at start of problem, too much accuracy\n"
                        "requested for precision of machine,\n"
                        "suggested scaling factor = %g\n",
                        tolsf_);
                illegalInput(istate);
                return;
            }
            message("lsoda -- at t = %g, too much accuracy requested\n"
                    "for precision of machine, suggested\n"
                    "scaling factor = %g\n",
                    tn_, tolsf_);
            returnOnFailure(-2);
            return;
        }

        if (tn_ + h_ == tn_) {
            ++nhnil_;
            if (nhnil_ <= mxhnil_) {
                message("lsoda -- warning..internal t = %g and h_ = %g are\n"
                        "such that in the machine, t + h_ = t on the next step\n"
                        "solver will continue anyway.\n",
                        tn_, h_);
                if (nhnil_ == mxhnil_)
                    message("lsoda -- above warning has been issued %d times,\n"
                            "it will not be issued again for this problem\n",
                            mxhnil_);
            }
        }

        stoda(neq, y.data(), f, data);

        if (kflag_ == -1) {
            message("lsoda -- at t = %g and step size h_ = %g, the\n"
                    "error test failed repeatedly or\n"
                    "with fabs(h_) = hmin\n",
                    tn_, h_);
            returnOnStepFailure(-4);
            return;
        }
        if (kflag_ < -1) {
            message("lsoda -- at t = %g and step size h_ = %g, the\n"
                    "corrector convergence failed repeatedly or\n"
                    "with fabs(h_) = hmin\n",
                    tn_, h_);
            returnOnStepFailure(-5);
            return;
        }

        // Successful step.
        init_ = 1;
        if (meth_ != mused_) {
            tsw_ = tn_;
            maxord_ = meth_ == 2 ? mxords_ : mxordn_;
            jstart_ = -1;
            if (meth_ == 2)
                message("[lsoda] a switch to the stiff method has occurred\n");
            else
                message("[lsoda] a switch to the nonstiff method has occurred\n");
        }

        switch (itask) {
        case 1:
            if ((tn_ - tout) * h_ < 0.0)
                continue;
            intdy(tout, 0, y.data(), &iflag);
            returnInterpolated();
            return;
        case 2:
            returnWithSolution();
            return;
        case 3:
            if ((tn_ - tout) * h_ >= 0.0) {
                returnWithSolution();
                return;
            }
            continue;
        case 4: {
            if ((tn_ - tout) * h_ >= 0.0) {
                intdy(tout, 0, y.data(), &iflag);
                returnInterpolated();
                return;
            }
            const double hmx = std::fabs(tn_) + std::fabs(h_);
            ihit = std::fabs(tn_ - tcrit_) <= 100.0 * uround_ * hmx;
            if (ihit) {
                returnWithSolution();
                return;
            }
            const double tnext = tn_ + h_ * (1.0 + 4.0 * uround_);
            if ((tnext - tcrit_) * h_ > 0.0) {
                h_ = (tcrit_ - tn_) * (1.0 - 4.0 * uround_);
                jstart_ = -2;
            }
            continue;
        }
        default: {
            const double hmx = std::fabs(tn_) + std::fabs(h_);
            ihit = std::fabs(tn_ - tcrit_) <= 100.0 * uround_ * hmx;
            returnWithSolution();
            return;
        }
        }
    }
}

void LSODA::ewset(const double *ycur)
{
    const int n = n_;
    switch (itol_) {
    case 1:
        for (int i = 1; i <= n; ++i)
            ewt_[i] = rtol_[1] * std::fabs(ycur[i]) + atol_[1];
        break;
    case 2:
        for (int i = 1; i <= n; ++i)
            ewt_[i] = rtol_[1] * std::fabs(ycur[i]) + atol_[i];
        break;
    case 3:
        for (int i = 1; i <= n; ++i)
            ewt_[i] = rtol_[i] * std::fabs(ycur[i]) + atol_[1];
        break;
    default:
        for (int i = 1; i <= n; ++i)
            ewt_[i] = rtol_[i] * std::fabs(ycur[i]) + atol_[i];
        break;
    }
}

double LSODA::vmnorm(int n, const double *v, const double *w)
{
    double vm = 0.0;
    for (int i = 1; i <= n; ++i)
        vm = std::max(vm, std::fabs(v[i]) * w[i]);
    return vm;
}

double LSODA::fnorm(int n, const std::vector<std::vector<double>> &a, const double *w)
{
    double an = 0.0;
    for (int i = 1; i <= n; ++i) {
        double sum = 0.0;
        for (int j = 1; j <= n; ++j)
            sum += std::fabs(a[j][i]) / w[j];
        an = std::max(an, sum * w[i]);
    }
    return an;
}

void LSODA::resetCoefficients()
{
    for (int i = 1; i <= l_; ++i)
        el_[i] = elco_[nq_][i];
    rc_ = rc_ * el_[1] / el0_;
    el0_ = el_[1];
    conit_ = 0.5 / (nq_ + 2);
}

void LSODA::rescale(double rh)
{
    rh = std::min(rh, rmax_);
    rh = rh / std::max(1.0, std::fabs(h_) * hmxi_ * rh);
    // The Adams step is also bounded by its stability region; irflag tells
    // the switching logic that the bound was active.
    if (meth_ == 1) {
        irflag_ = 0;
        const double pdh = std::max(std::fabs(h_) * pdlast_, 0.000001);
        if (rh * pdh * 1.00001 >= sm1_[nq_]) {
            rh = sm1_[nq_] / pdh;
            irflag_ = 1;
        }
    }
    double r = 1.0;
    for (int j = 2; j <= l_; ++j) {
        r *= rh;
        double *row = yh_[j].data();
        for (int i = 1; i <= n_; ++i)
            row[i] *= r;
    }
    h_ *= rh;
    rc_ *= rh;
    ialth_ = l_;
}

void LSODA::retractPrediction()
{
    for (int jb = 1; jb <= nq_; ++jb)
        for (int j = nq_ - jb + 1; j <= nq_; ++j) {
            double *row = yh_[j].data();
            const double *next = yh_[j + 1].data();
            for (int i = 1; i <= nyh_; ++i)
                row[i] -= next[i];
        }
}

void LSODA::stoda(std::size_t neq, double *y, RhsFunction f, void *data)
{
    const int n = n_;
    double *const savf = savf_.data();
    double *const acor = acor_.data();
    double *const ewt = ewt_.data();

    kflag_ = 0;
    const double told = tn_;
    int ncf = 0;
    ierpj_ = 0;
    iersl_ = 0;
    jcur_ = 0;
    icf_ = 0;
    double delp = 0.0;

    // Ends the step: saves h and scales acor to the estimated local error.
    auto finish = [&](bool resetRmax) {
        if (resetRmax)
            rmax_ = 10.0;
        const double r = 1.0 / tesco_[nqu_][2];
        for (int i = 1; i <= n; ++i)
            acor[i] *= r;
        hold_ = h_;
        jstart_ = 1;
    };
    auto fail = [&](int flag) {
        kflag_ = flag;
        hold_ = h_;
        jstart_ = 1;
    };

    if (jstart_ == 0) {
        lmax_ = maxord_ + 1;
        nq_ = 1;
        l_ = 2;
        ialth_ = 2;
        rmax_ = 10000.0;
        rc_ = 0.0;
        el0_ = 1.0;
        crate_ = 0.7;
        hold_ = h_;
        nslp_ = 0;
        ipup_ = miter_;
        icount_ = 20;
        irflag_ = 0;
        pdest_ = 0.0;
        pdlast_ = 0.0;
        ratio_ = 5.0;
        cfode(2);
        for (int i = 1; i <= 5; ++i)
            cm2_[i] = tesco_[i][2] * elco_[i][i + 1];
        cfode(1);
        for (int i = 1; i <= 12; ++i)
            cm1_[i] = tesco_[i][2] * elco_[i][i + 1];
        resetCoefficients();
    } else if (jstart_ < 0) {
        if (jstart_ == -1) {
            ipup_ = miter_;
            lmax_ = maxord_ + 1;
            if (ialth_ == 1)
                ialth_ = 2;
            if (meth_ != mused_) {
                cfode(meth_);
                ialth_ = l_;
                resetCoefficients();
            }
        }
        // The caller changed h: rescale the history to it.
        if (h_ != hold_) {
            const double rh = h_ / hold_;
            h_ = hold_;
            iredo_ = 3;
            rescale(rh);
        }
    }

    for (;;) {
        // Predict by multiplying the history by the Pascal triangle matrix.
        // The Jacobian is re-evaluated when h*el0 has changed by more than
        // ccmax since the last one, and at least every msbp steps.
        if (std::fabs(rc_ - 1.0) > ccmax_)
            ipup_ = miter_;
        if (nst_ >= nslp_ + msbp_)
            ipup_ = miter_;
        tn_ += h_;
        for (int jb = 1; jb <= nq_; ++jb)
            for (int j = nq_ - jb + 1; j <= nq_; ++j) {
                double *row = yh_[j].data();
                const double *next = yh_[j + 1].data();
                for (int i = 1; i <= nyh_; ++i)
                    row[i] += next[i];
            }
        const double pnorm = vmnorm(n, yh_[1].data(), ewt);

        // Corrector: at most maxcor iterations, the sum of the corrections
        // kept in acor; yh is not changed here.
        enum { Converged, Retry, Failed } outcome;
        int m = 0;
        double del = 0.0;
        for (;;) {
            m = 0;
            double rate = 0.0;
            del = 0.0;
            const double *yh1 = yh_[1].data();
            for (int i = 1; i <= n; ++i)
                y[i] = yh1[i];
            f(tn_, y, savf, data);
            ++nfe_;
            if (ipup_ > 0) {
                prja(neq, y, f, data);
                ipup_ = 0;
                rc_ = 1.0;
                nslp_ = nst_;
                crate_ = 0.7;
                if (ierpj_ != 0) {
                    outcome = Failed;
                    break;
                }
            }
            std::fill(acor_.begin(), acor_.end(), 0.0);
            const double *yh2 = yh_[2].data();
            outcome = Retry;
            for (;;) {
                if (miter_ == 0) {
                    // Functional iteration.
                    for (int i = 1; i <= n; ++i) {
                        savf[i] = h_ * savf[i] - yh2[i];
                        y[i] = savf[i] - acor[i];
                    }
                    del = vmnorm(n, y, ewt);
                    for (int i = 1; i <= n; ++i) {
                        y[i] = yh1[i] + el_[1] * savf[i];
                        acor[i] = savf[i];
                    }
                } else {
                    // Chord iteration with the factored matrix P = I - h el0 J.
                    for (int i = 1; i <= n; ++i)
                        y[i] = h_ * savf[i] - (yh2[i] + acor[i]);
                    solsy(y);
                    if (iersl_ < 0) {
                        outcome = Failed;
                        break;
                    }
                    if (iersl_ > 0)
                        break;
                    del = vmnorm(n, y, ewt);
                    for (int i = 1; i <= n; ++i) {
                        acor[i] += y[i];
                        y[i] = yh1[i] + el_[1] * acor[i];
                    }
                }
                // A change of the size of roundoff means convergence. Otherwise
                // the Adams iteration takes at least two corrections so that
                // a Lipschitz constant can be estimated from their ratio.
                if (del <= 100.0 * pnorm * uround_) {
                    outcome = Converged;
                    break;
                }
                if (m != 0 || meth_ != 1) {
                    if (m != 0) {
                        double rm = 1024.0;
                        if (del <= 1024.0 * delp)
                            rm = del / delp;
                        rate = std::max(rate, rm);
                        crate_ = std::max(0.2 * crate_, rm);
                    }
                    const double dcon = del * std::min(1.0, 1.5 * crate_) / (tesco_[nq_][2] * conit_);
                    if (dcon <= 1.0) {
                        pdest_ = std::max(pdest_, rate / std::fabs(h_ * el_[1]));
                        if (pdest_ != 0.0)
                            pdlast_ = pdest_;
                        outcome = Converged;
                        break;
                    }
                }
                ++m;
                if (m == maxcor_)
                    break;
                if (m >= 2 && del > 2.0 * delp)
                    break;
                delp = del;
                f(tn_, y, savf, data);
                ++nfe_;
            }
            if (outcome != Retry)
                break;
            // Not converged: retry once with a fresh Jacobian if it is stale.
            if (miter_ == 0 || jcur_ == 1) {
                outcome = Failed;
                break;
            }
            icf_ = 1;
            ipup_ = miter_;
        }

        if (outcome == Failed) {
            // Retract the prediction and retry with h / 4, unless h is at
            // hmin or mxncf failures have occurred.
            icf_ = 2;
            ++ncf;
            rmax_ = 2.0;
            tn_ = told;
            retractPrediction();
            if (ierpj_ < 0 || iersl_ < 0) {
                fail(-3);
                return;
            }
            if (std::fabs(h_) <= hmin_ * 1.00001 || ncf == mxncf_) {
                fail(-2);
                return;
            }
            ipup_ = miter_;
            iredo_ = 1;
            rescale(std::max(0.25, hmin_ / std::fabs(h_)));
            continue;
        }

        // Converged: the local error test.
        jcur_ = 0;
        double dsm;
        if (m == 0)
            dsm = del / tesco_[nq_][2];
        else
            dsm = vmnorm(n, acor, ewt) / tesco_[nq_][2];

        double rhup = 0.0;
        if (dsm > 1.0) {
            // Error test failed: restore the history and retry with a
            // smaller step, after the third failure at order 1 with h / 10.
            --kflag_;
            tn_ = told;
            retractPrediction();
            rmax_ = 2.0;
            if (std::fabs(h_) <= hmin_ * 1.00001) {
                fail(-1);
                return;
            }
            if (kflag_ <= -3) {
                if (kflag_ == -10) {
                    fail(-1);
                    return;
                }
                double rh = 0.1;
                rh = std::max(hmin_ / std::fabs(h_), rh);
                h_ *= rh;
                const double *yh1 = yh_[1].data();
                for (int i = 1; i <= n; ++i)
                    y[i] = yh1[i];
                f(tn_, y, savf, data);
                ++nfe_;
                double *yh2 = yh_[2].data();
                for (int i = 1; i <= n; ++i)
                    yh2[i] = h_ * savf[i];
                ipup_ = miter_;
                ialth_ = 5;
                if (nq_ != 1) {
                    nq_ = 1;
                    l_ = 2;
                    resetCoefficients();
                }
                continue;
            }
            iredo_ = 2;
        } else {
            // Successful step: update the history.
            kflag_ = 0;
            iredo_ = 0;
            ++nst_;
            hu_ = h_;
            nqu_ = nq_;
            mused_ = meth_;
            for (int j = 1; j <= l_; ++j) {
                double *row = yh_[j].data();
                const double elj = el_[j];
                for (int i = 1; i <= n; ++i)
                    row[i] += elj * acor[i];
            }

            // Every 20 steps, consider a method switch.
            --icount_;
            if (icount_ < 0) {
                if (meth_ == 1) {
                    // Adams: switch to BDF when the step BDF could take is at
                    // least ratio times the Adams one. Above order 5 the problem
                    // is taken as non-stiff. With estimates polluted by roundoff,
                    // switch (doubling h) only if stability limited the last step.
                    if (nq_ <= 5) {
                        bool doSwitch = false;
                        double rh2 = 0.0;
                        int nqm2 = 0;
                        if (dsm > 100.0 * pnorm * uround_ && pdest_ != 0.0) {
                            const double exsm = 1.0 / l_;
                            double rh1 = 1.0 / (1.2 * std::pow(dsm, exsm) + 0.0000012);
                            double rh1it = 2.0 * rh1;
                            const double pdh = pdlast_ * std::fabs(h_);
                            if (pdh * rh1 > 0.00001)
                                rh1it = sm1_[nq_] / pdh;
                            rh1 = std::min(rh1, rh1it);
                            if (nq_ > mxords_) {
                                nqm2 = mxords_;
                                const int lm2 = mxords_ + 1;
                                const double exm2 = 1.0 / lm2;
                                const double dm2 = vmnorm(n, yh_[lm2 + 1].data(), ewt) / cm2_[mxords_];
                                rh2 = 1.0 / (1.2 * std::pow(dm2, exm2) + 0.0000012);
                            } else {
                                const double dm2 = dsm * (cm1_[nq_] / cm2_[nq_]);
                                rh2 = 1.0 / (1.2 * std::pow(dm2, exsm) + 0.0000012);
                                nqm2 = nq_;
                            }
                            doSwitch = !(rh2 < ratio_ * rh1);
                        } else if (irflag_ != 0) {
                            rh2 = 2.0;
                            nqm2 = std::min(nq_, mxords_);
                            doSwitch = true;
                        }
                        if (doSwitch) {
                            icount_ = 20;
                            meth_ = 2;
                            miter_ = jtyp_;
                            pdlast_ = 0.0;
                            nq_ = nqm2;
                            l_ = nq_ + 1;
                            rescale(std::max(rh2, hmin_ / std::fabs(h_)));
                            finish(true);
                            return;
                        }
                    }
                } else {
                    // BDF: switch to Adams when its step would be at least as
                    // large, unless that step is so small that roundoff pollutes it.
                    const double exsm = 1.0 / l_;
                    double dm1, rh1, exm1;
                    int nqm1;
                    if (mxordn_ < nq_) {
                        nqm1 = mxordn_;
                        const int lm1 = mxordn_ + 1;
                        exm1 = 1.0 / lm1;
                        dm1 = vmnorm(n, yh_[lm1 + 1].data(), ewt) / cm1_[mxordn_];
                        rh1 = 1.0 / (1.2 * std::pow(dm1, exm1) + 0.0000012);
                    } else {
                        dm1 = dsm * (cm2_[nq_] / cm1_[nq_]);
                        rh1 = 1.0 / (1.2 * std::pow(dm1, exsm) + 0.0000012);
                        nqm1 = nq_;
                        exm1 = exsm;
                    }
                    double rh1it = 2.0 * rh1;
                    const double pdh = pdnorm_ * std::fabs(h_);
                    if (pdh * rh1 > 0.00001)
                        rh1it = sm1_[nqm1] / pdh;
                    rh1 = std::min(rh1, rh1it);
                    const double rh2 = 1.0 / (1.2 * std::pow(dsm, exsm) + 0.0000012);
                    if (!(rh1 * ratio_ < 5.0 * rh2)) {
                        const double alpha = std::max(0.001, rh1);
                        dm1 = std::pow(alpha, exm1) * dm1;
                        if (!(dm1 <= 1000.0 * uround_ * pnorm)) {
                            icount_ = 20;
                            meth_ = 1;
                            miter_ = 0;
                            pdlast_ = 0.0;
                            nq_ = nqm1;
                            l_ = nq_ + 1;
                            rescale(std::max(rh1, hmin_ / std::fabs(h_)));
                            finish(true);
                            return;
                        }
                    }
                }
            }

            // No switch. Change h or the order only every l steps; on the
            // step before, keep acor for a possible order increase.
            --ialth_;
            if (ialth_ != 0) {
                if (ialth_ == 1 && l_ != lmax_) {
                    double *rowmax = yh_[lmax_].data();
                    for (int i = 1; i <= n; ++i)
                        rowmax[i] = acor[i];
                }
                finish(false);
                return;
            }
            if (l_ != lmax_) {
                const double *rowmax = yh_[lmax_].data();
                for (int i = 1; i <= n; ++i)
                    savf[i] = acor[i] - rowmax[i];
                const double dup = vmnorm(n, savf, ewt) / tesco_[nq_][3];
                const double exup = 1.0 / (l_ + 1);
                rhup = 1.0 / (1.4 * std::pow(dup, exup) + 0.0000014);
            }
        }

        // Step ratios for orders nq - 1, nq and nq + 1 (no increase after a
        // failure); take the largest and change the order accordingly.
        const double exsm = 1.0 / l_;
        double rhsm = 1.0 / (1.2 * std::pow(dsm, exsm) + 0.0000012);
        double rhdn = 0.0;
        if (nq_ != 1) {
            const double ddn = vmnorm(n, yh_[l_].data(), ewt) / tesco_[nq_][1];
            const double exdn = 1.0 / nq_;
            rhdn = 1.0 / (1.3 * std::pow(ddn, exdn) + 0.0000013);
        }
        double pdh = 0.0;
        if (meth_ == 1) {
            pdh = std::max(std::fabs(h_) * pdlast_, 0.000001);
            if (l_ < lmax_)
                rhup = std::min(rhup, sm1_[l_] / pdh);
            rhsm = std::min(rhsm, sm1_[nq_] / pdh);
            if (nq_ > 1)
                rhdn = std::min(rhdn, sm1_[nq_ - 1] / pdh);
            pdest_ = 0.0;
        }
        int newq;
        double rh;
        bool increase = false;
        if (rhsm >= rhup) {
            if (rhsm < rhdn) {
                newq = nq_ - 1;
                rh = rhdn;
            } else {
                newq = nq_;
                rh = rhsm;
            }
        } else if (rhup > rhdn) {
            newq = l_;
            rh = rhup;
            increase = true;
        } else {
            newq = nq_ - 1;
            rh = rhdn;
        }
        if (increase) {
            if (rh < 1.1) {
                ialth_ = 3;
                finish(false);
                return;
            }
            const double r = el_[l_] / l_;
            double *row = yh_[newq + 1].data();
            for (int i = 1; i <= n; ++i)
                row[i] = acor[i] * r;
        } else {
            if (newq < nq_ && kflag_ < 0 && rh > 1.0)
                rh = 1.0;
            // Changes below 10% are not worth it, unless the Adams step is
            // bounded by stability.
            const bool stabilityBound = meth_ == 1 && rh * pdh * 1.00001 >= sm1_[newq];
            if (!stabilityBound && kflag_ == 0 && rh < 1.1) {
                ialth_ = 3;
                finish(false);
                return;
            }
            if (kflag_ <= -2)
                rh = std::min(rh, 0.2);
        }
        if (newq != nq_) {
            nq_ = newq;
            l_ = nq_ + 1;
            resetCoefficients();
        }
        rescale(std::max(rh, hmin_ / std::fabs(h_)));
        if (iredo_ == 0) {
            finish(true);
            return;
        }
    }
}

void LSODA::prja(std::size_t neq, double *y, RhsFunction f, void *data)
{
    (void)neq;
    const int n = n_;
    ++nje_;
    ierpj_ = 0;
    jcur_ = 1;
    const double hl0 = h_ * el0_;
    if (miter_ != 2) {
        message("[prja] miter != 2\n");
        ierpj_ = -1;
        return;
    }
    if (int(wm_.size()) != n + 1 || int(wm_[0].size()) != n + 1) {
        wm_.assign(n + 1, std::vector<double>(n + 1, 0.0));
        ipvt_.assign(n + 1, 0);
    }
    double *const ewt = ewt_.data();
    double *const savf = savf_.data();
    double *const ftem = acor_.data();

    // Column j by a forward difference with increment
    // max(sqrt(uround) |y_j|, r0 * weight_j).
    double fac = vmnorm(n, savf, ewt);
    double r0 = 1000.0 * std::fabs(h_) * uround_ * n * fac;
    if (r0 == 0.0)
        r0 = 1.0;
    for (int j = 1; j <= n; ++j) {
        const double yj = y[j];
        const double r = std::max(srur_ * std::fabs(yj), r0 / ewt[j]);
        y[j] += r;
        fac = -hl0 / r;
        f(tn_, y, ftem, data);
        double *column = wm_[j].data();
        for (int i = 1; i <= n; ++i)
            column[i] = (ftem[i] - savf[i]) * fac;
        y[j] = yj;
    }
    nfe_ += n;

    // The norm of J feeds the BDF-to-Adams switching test.
    pdnorm_ = fnorm(n, wm_, ewt) / std::fabs(hl0);
    for (int i = 1; i <= n; ++i)
        wm_[i][i] += 1.0;
    int ier = 0;
    dgefa(wm_, n, ipvt_, &ier);
    if (ier != 0)
        ierpj_ = 1;
}

void LSODA::solsy(double *x)
{
    iersl_ = 0;
    if (miter_ != 2) {
        message("solsy -- miter != 2\n");
        iersl_ = -1;
        return;
    }
    dgesl(wm_, n_, ipvt_, x);
}

void LSODA::intdy(double t, int k, double *dky, int *iflag)
{
    *iflag = 0;
    if (k < 0 || k > nq_) {
        message("[intdy] k = %d illegal\n", k);
        *iflag = -1;
        return;
    }
    const double tp = tn_ - hu_ - 100.0 * uround_ * std::copysign(std::fabs(tn_) + std::fabs(hu_), hu_);
    if ((t - tp) * (t - tn_) > 0.0) {
        message("intdy -- t = %g illegal. t not in interval tcur - hu to tcur\n", t);
        *iflag = -2;
        return;
    }
    // Horner evaluation of the Nordsieck polynomial (and its derivatives)
    // at s = (t - tn) / h.
    const double s = (t - tn_) / h_;
    int ic = 1;
    if (k != 0)
        for (int jj = l_ - k; jj <= nq_; ++jj)
            ic *= jj;
    double c = ic;
    const double *rowl = yh_[l_].data();
    for (int i = 1; i <= n_; ++i)
        dky[i] = c * rowl[i];
    if (k != nq_) {
        for (int jb = 1; jb <= nq_ - k; ++jb) {
            const int j = nq_ - jb;
            const int jp1 = j + 1;
            ic = 1;
            if (k != 0)
                for (int jj = jp1 - k; jj <= j; ++jj)
                    ic *= jj;
            c = ic;
            const double *row = yh_[jp1].data();
            for (int i = 1; i <= n_; ++i)
                dky[i] = c * row[i] + s * dky[i];
        }
    }
    if (k == 0)
        return;
    const double r = std::pow(h_, -k);
    for (int i = 1; i <= n_; ++i)
        dky[i] *= r;
}
