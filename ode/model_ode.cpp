#include "model_ode.h"

#include "LSODA.h"
#include "ModelRhs.h"
#include "RosenbrockSubstitution.h"

#include <boost/numeric/odeint/integrate/integrate_adaptive.hpp>
#include <boost/numeric/odeint/stepper/rosenbrock4.hpp>
#include <boost/numeric/odeint/stepper/rosenbrock4_controller.hpp>

#include <cmath>
#include <limits>
#include <memory>

namespace odeint = boost::numeric::odeint;
namespace ublas = boost::numeric::ublas;

ModelRhs::ModelRhs(const model_ode &m, const QVector<double> &parameters, int timeLimitMs)
    : model(m)
    , n(m.numStateVariables)
    , values(std::size_t(1 + m.numStateVariables + parameters.size()), 0.0)
    , base(std::size_t(m.numStateVariables), 0.0)
    , stopwatch(timeLimitMs)
{
    std::copy(parameters.begin(), parameters.end(), values.begin() + 1 + n);
}

void ModelRhs::setInterval(int i)
{
    infusedCompartments = &model.infusionCompartments[i];
    infusionRates = &model.infusionRates[i];
}

void ModelRhs::checkTimeLimit()
{
    if (stopwatch.limitExceeded())
        throw std::runtime_error("Exception : integration taking too long!");
}

void ModelRhs::derivatives(double t, const double *x, double *dxdt)
{
    load(t, x);
    for (int i = 0; i < n; ++i)
        dxdt[i] = equation(i);
    if (infusedCompartments) {
        for (int k = 0; k < infusedCompartments->size(); ++k)
            dxdt[(*infusedCompartments)[k]] += (*infusionRates)[k];
    }
    ++evaluations;
    checkFinite(x, dxdt);
    checkTimeLimit();
}

void ModelRhs::checkFinite(const double *x, const double *dxdt) const
{
    // A state or slope that is infinite or NaN never becomes finite again,
    // and one near the end of the double range overflows inside the
    // integrators' error estimates: either way they would shrink their steps
    // until the time limit.
    const double overflow = 1e300;
    for (int i = 0; i < n; ++i)
        if (!(std::abs(x[i]) <= overflow) || !(std::abs(dxdt[i]) <= overflow))
            throw std::runtime_error("Exception : the solution is not finite");
}

std::vector<std::vector<double>> model_ode::nanRows() const
{
    return std::vector<std::vector<double>>(
            std::size_t(observationTimes.size()),
            std::vector<double>(std::size_t(numStateVariables), std::numeric_limits<double>::quiet_NaN()));
}

// The Rosenbrock stepper with its step-size controller, kept for all
// intervals of one evaluation so that its work vectors and matrices are
// allocated once. Each interval starts the step-size control afresh, exactly
// as a new controller would.
class RosenbrockIntegrator : public odeint::rosenbrock4_controller<odeint::rosenbrock4<double>> {
public:
    using State = ublas::vector<double>;

    RosenbrockIntegrator(double absoluteTolerance, double relativeTolerance, std::size_t n)
        : rosenbrock4_controller(absoluteTolerance, relativeTolerance)
        , state(n)
    {
    }

    void restartControl()
    {
        m_first_step = true;
        m_err_old = 0.0;
        m_dt_old = 0.0;
        m_last_rejected = false;
    }

    State state;
};

void model_ode::integrateRosenbrock(std::vector<double> &state, double t0, double t1, ModelRhs &rhs,
                                    RosenbrockIntegrator &integrator)
{
    using State = RosenbrockIntegrator::State;
    using Matrix = ublas::matrix<double>;
    State &x = integrator.state;
    std::copy(state.begin(), state.end(), x.begin());
    auto system = [&rhs](const State &s, State &dsdt, double t) { rhs.derivatives(t, &s[0], &dsdt[0]); };
    auto jacobian = [&rhs](const State &s, Matrix &j, double t, State &dfdt) {
        rhs.jacobian(t, &s[0], j, dfdt);
    };
    integrator.restartControl();
    odeint::integrate_adaptive(boost::ref(integrator), std::make_pair(system, jacobian), x, t0, t1,
                               (t1 - t0) * 0.5);
    std::copy(x.begin(), x.end(), state.begin());
}

std::vector<std::vector<double>> model_ode::evaluate(const QVector<double> &parameters)
{
    m_rhsEvaluations = 0;
    if (hasParameterDependentEvents)
        buildSchedule(parameters);

    double sum = 0;
    for (double p : parameters)
        sum += p;
    if (std::isnan(sum) || numStateVariables == 0)
        return nanRows();

    std::vector<std::vector<double>> rows(std::size_t(observationTimes.size()));
    try {
        ModelRhs rhs(*this, parameters, timeLimitMs);
        std::vector<double> state(std::size_t(numStateVariables), 0.0);
        // A fresh integrator per evaluation: no state carries over.
        std::unique_ptr<LSODA> solver;
        std::unique_ptr<RosenbrockIntegrator> rosenbrock;
        if (useRosenbrock) {
            rosenbrock = std::make_unique<RosenbrockIntegrator>(rosenbrockAbsoluteTolerance,
                                                                rosenbrockRelativeTolerance, state.size());
        } else {
            solver = std::make_unique<LSODA>();
            solver->setMessageStream(lsodaMessageStream);
        }

        // The observation records of grid point i see the state there.
        const auto keepState = [&](int i) {
            for (int k = gridRecordStart[i]; k < gridRecordStart[i + 1]; ++k)
                rows[std::size_t(gridRecords[k])] = state;
        };
        // Observations at the first grid point see the initial state.
        if (!timePoints.isEmpty())
            keepState(0);

        for (int i = 0; i + 1 < timePoints.size(); ++i) {
            for (int j = 0; j < numStateVariables; ++j) {
                state[std::size_t(j)] += bolusDose[i][j];
                if (!std::isnan(setValue[i][j]))
                    state[std::size_t(j)] = setValue[i][j];
            }
            rhs.setInterval(i + 1);
            if (useRosenbrock)
                integrateRosenbrock(state, timePoints[i], timePoints[i + 1], rhs, *rosenbrock);
            else
                integrateLsoda(state, timePoints[i], timePoints[i + 1], rhs, *solver);
            // The state before the doses of grid point i + 1.
            keepState(i + 1);
        }
        m_rhsEvaluations = rhs.evaluations;
    } catch (...) {
        // The time limit, a stepper failure or an allocation failure: the
        // evaluation failed as a whole.
        return nanRows();
    }

    // Records off the grid have no state.
    for (auto &row : rows)
        if (row.empty())
            row.assign(std::size_t(numStateVariables), std::numeric_limits<double>::quiet_NaN());
    return rows;
}

namespace {

void lsodaRightHandSide(double t, double *y, double *ydot, void *data)
{
    static_cast<ModelRhs *>(data)->derivatives(t, y + 1, ydot + 1);
}

} // namespace

void model_ode::integrateLsoda(std::vector<double> &state, double t0, double t1, ModelRhs &rhs, LSODA &solver)
{
    // Every interval is a new problem: a dose may have changed the state.
    int istate = 1;
    double t = t0;
    std::vector<double> yout;
    solver.lsoda_update(lsodaRightHandSide, state.size(), state, yout, &t, t1, &istate, &rhs,
                        lsodaRelativeTolerance, lsodaAbsoluteTolerance);
    std::copy(yout.begin() + 1, yout.end(), state.begin());
}

SolvedPointValues::SolvedPointValues(int numStateVariables, const QVector<double> &parameters)
    : m_values(std::size_t(1 + numStateVariables + parameters.size()), 0.0)
{
    std::copy(parameters.begin(), parameters.end(), m_values.begin() + 1 + numStateVariables);
}

double SolvedPointValues::evaluate(const ExpressionParser &expression, double t,
                                   const std::vector<double> &state)
{
    if (expression.nodes().isEmpty())
        return std::numeric_limits<double>::quiet_NaN();
    m_values[0] = t;
    std::copy(state.begin(), state.end(), m_values.begin() + 1);
    return expression.evaluate(m_values.data(), m_values.size());
}
