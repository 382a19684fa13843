#include "LeastSquares.h"

#include <gsl/gsl_blas.h>
#include <gsl/gsl_errno.h>
#include <gsl/gsl_linalg.h>
#include <gsl/gsl_multifit_nlinear.h>

#include <cmath>
#include <limits>
#include <memory>
#include <mutex>

namespace {

// The residual of a point whose evaluation failed: large enough that the
// solver rejects the trial step and shrinks its trust region, small enough
// that the norms stay finite.
const double kFailedResidual = 1e100;

// A trial step that moves no coordinate by more than this times its scale
// cannot lower the SSR by anything that matters: the solver has stalled.
const double kStalledStep = 1e-8;

struct Context {
    const LeastSquaresProblem *problem = nullptr;
    LeastSquaresResult *result = nullptr;
    const gsl_multifit_nlinear_workspace *w = nullptr; // set once initialised
    bool firstCall = true;
    bool stopped = false;
    bool failed = false;
    bool stalled = false;

    // The solver's trial points after the start differ from its current
    // point by the trial step.
    bool stalledAt(const gsl_vector *x)
    {
        if (!w)
            return false;
        for (std::size_t q = 0; q < x->size; ++q)
            if (std::abs(gsl_vector_get(x, q) - gsl_vector_get(w->x, q)) >
                kStalledStep * problem->scale.value(int(q), 1.0))
                return false;
        stalled = true;
        return true;
    }

    bool stopRequested()
    {
        stopped = stopped || (problem->stopRequested && problem->stopRequested());
        return stopped;
    }
};

QVector<double> toQVector(const gsl_vector *v)
{
    QVector<double> out(int(v->size));
    for (std::size_t i = 0; i < v->size; ++i)
        out[int(i)] = gsl_vector_get(v, i);
    return out;
}

bool allFinite(const QVector<double> &values)
{
    for (double v : values)
        if (!std::isfinite(v))
            return false;
    return true;
}

int residualsCallback(const gsl_vector *x, void *params, gsl_vector *f)
{
    Context &context = *static_cast<Context *>(params);
    if (context.stopRequested() || context.stalledAt(x))
        return GSL_EBADFUNC;
    ++context.result->residualEvaluations;
    QVector<double> r;
    const bool ok = context.problem->residuals(toQVector(x), r) && r.size() == int(f->size) && allFinite(r);
    // The start must be evaluable; a failed trial point is only a bad step.
    if (!ok && context.firstCall) {
        context.failed = true;
        return GSL_EBADFUNC;
    }
    context.firstCall = false;
    for (std::size_t j = 0; j < f->size; ++j)
        gsl_vector_set(f, j, ok ? r[int(j)] : kFailedResidual);
    return GSL_SUCCESS;
}

// Writes J only when the whole Jacobian is usable, so that a failure leaves
// the solver's state at its last accepted point intact.
int jacobianCallback(const gsl_vector *x, void *params, gsl_matrix *J)
{
    Context &context = *static_cast<Context *>(params);
    if (context.stopRequested())
        return GSL_EBADFUNC;
    ++context.result->jacobianEvaluations;
    DoubleMatrix jacobian;
    bool ok = context.problem->jacobian(toQVector(x), jacobian) && jacobian.size() == int(J->size1);
    for (int j = 0; ok && j < jacobian.size(); ++j)
        ok = jacobian[j].size() == int(J->size2) && allFinite(jacobian[j]);
    if (!ok) {
        context.failed = true;
        return GSL_EBADFUNC;
    }
    for (std::size_t j = 0; j < J->size1; ++j)
        for (std::size_t q = 0; q < J->size2; ++q)
            gsl_matrix_set(J, j, q, jacobian[int(j)][int(q)]);
    return GSL_SUCCESS;
}

double sumOfSquares(const gsl_vector *f)
{
    const double norm = gsl_blas_dnrm2(f);
    return norm * norm;
}

// The relative offset of the Gauss-Newton step at the solver's point; NaN
// without degrees of freedom or with an exact fit.
double relativeOffset(const gsl_multifit_nlinear_workspace *w)
{
    const std::size_t m = w->J->size1, p = w->J->size2;
    if (m <= p)
        return std::numeric_limits<double>::quiet_NaN();
    gsl_matrix *qr = gsl_matrix_alloc(m, p);
    gsl_vector *tau = gsl_vector_alloc(p);
    gsl_vector *projected = gsl_vector_alloc(m);
    gsl_matrix_memcpy(qr, w->J);
    gsl_vector_memcpy(projected, w->f);
    double inside = 0, outside = 0;
    if (gsl_linalg_QR_decomp(qr, tau) == GSL_SUCCESS &&
        gsl_linalg_QR_QTvec(qr, tau, projected) == GSL_SUCCESS)
        for (std::size_t j = 0; j < m; ++j) {
            const double v = gsl_vector_get(projected, j);
            (j < p ? inside : outside) += v * v;
        }
    gsl_vector_free(projected);
    gsl_vector_free(tau);
    gsl_matrix_free(qr);
    if (!(outside > 0))
        return std::numeric_limits<double>::quiet_NaN();
    return std::sqrt((inside / double(p)) / (outside / double(m - p)));
}

bool smallStep(const gsl_vector *dx, const QVector<double> &scale, double tolerance)
{
    for (std::size_t q = 0; q < dx->size; ++q)
        if (std::abs(gsl_vector_get(dx, q)) > tolerance * scale.value(int(q), 1.0))
            return false;
    return true;
}

LeastSquaresStop iterate(gsl_multifit_nlinear_workspace *w, Context &context,
                         const LeastSquaresSettings &settings)
{
    LeastSquaresResult &result = *context.result;
    if (relativeOffset(w) < settings.relativeOffset)
        return LeastSquaresStop::Converged;
    while (result.iterations < settings.maxIterations) {
        const int status = gsl_multifit_nlinear_iterate(w);
        if (context.stopped)
            return LeastSquaresStop::Stopped;
        if (context.stalled)
            return LeastSquaresStop::NoProgress;
        if (context.failed || (status != GSL_SUCCESS && status != GSL_ENOPROG))
            return LeastSquaresStop::EvaluationFailed;
        if (status == GSL_ENOPROG)
            return LeastSquaresStop::NoProgress;
        ++result.iterations;
        if (relativeOffset(w) < settings.relativeOffset)
            return LeastSquaresStop::Converged;
        if (smallStep(w->dx, context.problem->scale, settings.stepTolerance))
            return LeastSquaresStop::SmallStep;
    }
    return LeastSquaresStop::IterationLimit;
}

struct WorkspaceDeleter {
    void operator()(gsl_multifit_nlinear_workspace *w) const { gsl_multifit_nlinear_free(w); }
};
struct VectorDeleter {
    void operator()(gsl_vector *v) const { gsl_vector_free(v); }
};

} // namespace

QString leastSquaresStopText(LeastSquaresStop stop)
{
    switch (stop) {
    case LeastSquaresStop::Converged:
        return QStringLiteral("converged (relative offset)");
    case LeastSquaresStop::SmallStep:
        return QStringLiteral("converged (small step)");
    case LeastSquaresStop::NoProgress:
        return QStringLiteral("no further decrease of the SSR");
    case LeastSquaresStop::IterationLimit:
        return QStringLiteral("iteration limit reached");
    case LeastSquaresStop::EvaluationFailed:
        return QStringLiteral("model evaluation failed");
    case LeastSquaresStop::Stopped:
        return QStringLiteral("stopped");
    }
    return QString();
}

LeastSquaresResult levenbergMarquardt(const LeastSquaresProblem &problem, const QVector<double> &start,
                                      const LeastSquaresSettings &settings)
{
    // GSL's default handler aborts the program on an error; its status
    // codes are handled here instead. Set once: solves may run side by side.
    static std::once_flag handlerOff;
    std::call_once(handlerOff, []() { gsl_set_error_handler_off(); });
    LeastSquaresResult result;
    const std::size_t m = std::size_t(problem.residualCount), p = std::size_t(start.size());
    if (m < p || p == 0)
        return result;

    Context context;
    context.problem = &problem;
    context.result = &result;
    gsl_multifit_nlinear_fdf fdf{};
    fdf.f = residualsCallback;
    fdf.df = jacobianCallback;
    fdf.fvv = nullptr;
    fdf.n = m;
    fdf.p = p;
    fdf.params = &context;

    gsl_multifit_nlinear_parameters parameters = gsl_multifit_nlinear_default_parameters();
    // Plain Levenberg-Marquardt: geodesic acceleration would need the second
    // directional derivative, by a forward difference along a short step that
    // the float rounding inside generated transformations swamps, so that it
    // rejects good steps.
    parameters.trs = gsl_multifit_nlinear_trs_lm;
    std::unique_ptr<gsl_multifit_nlinear_workspace, WorkspaceDeleter> w(
            gsl_multifit_nlinear_alloc(gsl_multifit_nlinear_trust, &parameters, m, p));
    std::unique_ptr<gsl_vector, VectorDeleter> x0(gsl_vector_alloc(p));
    if (!w || !x0)
        return result;
    for (std::size_t q = 0; q < p; ++q)
        gsl_vector_set(x0.get(), q, start[int(q)]);

    if (gsl_multifit_nlinear_init(x0.get(), &fdf, w.get()) != GSL_SUCCESS) {
        result.stop = context.stopped ? LeastSquaresStop::Stopped : LeastSquaresStop::EvaluationFailed;
        return result;
    }
    result.startSsr = sumOfSquares(w->f);
    context.w = w.get();
    result.stop = iterate(w.get(), context, settings);
    result.x = toQVector(w->x);
    result.residuals = toQVector(w->f);
    result.ssr = sumOfSquares(w->f);
    result.jacobian = DoubleMatrix(int(m), QVector<double>(int(p)));
    for (std::size_t j = 0; j < m; ++j)
        for (std::size_t q = 0; q < p; ++q)
            result.jacobian[int(j)][int(q)] = gsl_matrix_get(w->J, j, q);
    return result;
}
