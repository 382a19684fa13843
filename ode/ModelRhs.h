#pragma once

#include "EvaluationStopwatch.h"
#include "model_ode.h"

#include <stdexcept>
#include <vector>

// The right-hand side of one model evaluation: the ODE system with the
// current parameters and the current interval's infusions, its Jacobian, and
// the time limit. Lives on the stack of one evaluation.
struct ModelRhs {
    ModelRhs(const model_ode &model, const QVector<double> &parameters, int timeLimitMs);

    // Selects the infusions of interval (i-1, i).
    void setInterval(int i);

    // dxdt = f(t, x); both arrays hold numStateVariables values.
    void derivatives(double t, const double *x, double *dxdt);

    // The Jacobian df/dx by forward differences that touch only the
    // equations depending on each state, and df/dt for the equations that
    // use "t" (zero elsewhere). jacobian is row-major n x n.
    template<class Matrix, class Vector>
    void jacobian(double t, const double *x, Matrix &jacobian, Vector &dfdt);

    void checkTimeLimit();
    // Throws when a state or a derivative is NaN, infinite or above 1e300.
    void checkFinite(const double *x, const double *dxdt) const;

    const model_ode &model;
    const int n;
    std::vector<double> values; // "t", states, parameters
    std::vector<double> base;   // f at the Jacobian's expansion point
    const QVector<int> *infusedCompartments = nullptr;
    const QVector<double> *infusionRates = nullptr;
    EvaluationStopwatch stopwatch;
    long evaluations = 0;

private:
    // Puts t and the state into the values vector.
    void load(double t, const double *x)
    {
        values[0] = t;
        std::copy(x, x + n, values.begin() + 1);
    }
    double equation(int i) const
    {
        if (model.compiledEquation)
            return model.compiledEquation(i, values.data());
        return model.rightHandSides[i].evaluate(values.data(), values.size());
    }
};

template<class Matrix, class Vector>
void ModelRhs::jacobian(double t, const double *x, Matrix &jacobian, Vector &dfdt)
{
    load(t, x);
    for (int i = 0; i < n; ++i)
        base[std::size_t(i)] = equation(i);
    ++evaluations;

    double scale = 0;
    for (int j = 0; j < n; ++j)
        scale = std::max(scale, std::abs(x[j]));
    const double sqrtEps = 1.4901161193847656e-8;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            jacobian(i, j) = 0.0;
    for (int j = 0; j < n; ++j) {
        double &xj = values[std::size_t(j) + 1];
        const double original = xj;
        const double step = sqrtEps * std::max({std::abs(original), 1e-3 * scale, 1e-10});
        xj = original + step;
        const double h = xj - original; // the step actually representable
        for (int i : model.equationsDependingOnState[j])
            jacobian(i, j) = (equation(i) - base[std::size_t(i)]) / h;
        xj = original;
    }
    for (int i = 0; i < n; ++i)
        dfdt[i] = 0.0;
    if (!model.equationsUsingTime.isEmpty()) {
        const double step = sqrtEps * std::max(std::abs(t), 1.0);
        values[0] = t + step;
        const double h = values[0] - t;
        for (int i : model.equationsUsingTime)
            dfdt[i] = (equation(i) - base[std::size_t(i)]) / h;
        values[0] = t;
    }
    ++evaluations;
    checkTimeLimit();
}
