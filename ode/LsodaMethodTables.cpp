// The coefficient tables of LSODA's two methods (Adams orders 1 to 12, BDF
// orders 1 to 5) and the step-ratio bounds of the Adams orders.
#include "ode/LSODA.h"

#include <cstring>

// Step-ratio bounds that keep the Adams method of each order inside its
// stability region, for orders 1 to 12 (element 0 unused).
const double LSODA::sm1_[13] = {0.0, 0.5, 0.575, 0.55, 0.45, 0.35, 0.25, 0.2, 0.15, 0.1, 0.075, 0.05, 0.025};
// Maximum orders of the Adams and BDF methods (element 0 unused).
const int LSODA::mord_[3] = {0, 12, 5};

namespace {

// The Adams (meth 1) or BDF (meth 2) coefficients of orders 1 to 12 or 1 to 5.
void computeMethodCoefficients(int meth, double (&elco_)[13][14], double (&tesco_)[13][4])
{
    double pc[13];
    if (meth == 1) {
        // Adams: the coefficients come from the polynomial
        // p(x) = (x + 1)(x + 2)...(x + nq - 1) and its integrals over [-1, 0].
        elco_[1][1] = 1.0;
        elco_[1][2] = 1.0;
        tesco_[1][1] = 0.0;
        tesco_[1][2] = 2.0;
        tesco_[2][1] = 1.0;
        tesco_[12][3] = 0.0;
        pc[1] = 1.0;
        double rqfac = 1.0;
        for (int nq = 2; nq <= 12; ++nq) {
            const double rq1fac = rqfac;
            rqfac = rqfac / nq;
            const int nqm1 = nq - 1;
            const double fnqm1 = nqm1;
            const int nqp1 = nq + 1;
            pc[nq] = 0.0;
            for (int ib = 1; ib <= nqm1; ++ib) {
                const int i = nqp1 - ib;
                pc[i] = pc[i - 1] + fnqm1 * pc[i];
            }
            pc[1] = fnqm1 * pc[1];
            double pint = pc[1];
            double xpin = pc[1] / 2.0;
            double tsign = 1.0;
            for (int i = 2; i <= nq; ++i) {
                tsign = -tsign;
                pint += tsign * pc[i] / i;
                xpin += tsign * pc[i] / (i + 1);
            }
            elco_[nq][1] = pint * rq1fac;
            elco_[nq][2] = 1.0;
            for (int i = 2; i <= nq; ++i)
                elco_[nq][i + 1] = rq1fac * pc[i] / i;
            const double agamq = rqfac * xpin;
            const double ragq = 1.0 / agamq;
            tesco_[nq][2] = ragq;
            if (nq < 12)
                tesco_[nqp1][1] = ragq * rqfac / nqp1;
            tesco_[nqm1][3] = ragq;
        }
        return;
    }
    // BDF: from p(x) = (x + 1)(x + 2)...(x + nq).
    pc[1] = 1.0;
    double rq1fac = 1.0;
    for (int nq = 1; nq <= 5; ++nq) {
        const double fnq = nq;
        const int nqp1 = nq + 1;
        pc[nqp1] = 0.0;
        for (int ib = 1; ib <= nq; ++ib) {
            const int i = nq + 2 - ib;
            pc[i] = pc[i - 1] + fnq * pc[i];
        }
        pc[1] = fnq * pc[1];
        for (int i = 1; i <= nqp1; ++i)
            elco_[nq][i] = pc[i] / pc[2];
        elco_[nq][2] = 1.0;
        tesco_[nq][1] = rq1fac;
        tesco_[nq][2] = nqp1 / elco_[nq][1];
        tesco_[nq][3] = (nq + 2) / elco_[nq][1];
        rq1fac /= fnq;
    }
}

// Both methods' tables, computed once: every problem start needs them.
struct MethodCoefficients {
    double elco[13][14] = {};
    double tesco[13][4] = {};
    explicit MethodCoefficients(int meth) { computeMethodCoefficients(meth, elco, tesco); }
};

} // namespace

void LSODA::cfode(int meth)
{
    static const MethodCoefficients adams(1), bdf(2);
    // The rows of the orders the method has; the other rows keep what they
    // held (no order beyond the method's maximum reads them).
    const MethodCoefficients &table = meth == 1 ? adams : bdf;
    const int rows = meth == 1 ? 13 : 6;
    std::memcpy(elco_, table.elco, sizeof(double) * 14 * std::size_t(rows));
    std::memcpy(tesco_, table.tesco, sizeof(double) * 4 * std::size_t(rows));
}
