#include "model_ode.h"

#include "model/OdeSystemText.h"

#include <algorithm>
#include <cmath>
#include <limits>

model_ode::model_ode(const OdeSystemText &system, const QVector<DoseEvent> &doses,
                     const QVector<ObservationEvent> &observations)
    : numStateVariables(system.numStateVariables())
    , rightHandSides(system.parsers)
    , doseEvents(doses)
    , numParameters(system.parameterNames.size())
{
    for (const ObservationEvent &observation : observations)
        observationTimes << observation.time;

    equationsDependingOnState.resize(numStateVariables);
    for (int i = 0; i < system.dependencyMatrix.size(); ++i)
        for (int j = 0; j < numStateVariables; ++j)
            if (system.dependencyMatrix[i][j] != OdeSystemText::Independent)
                equationsDependingOnState[j] << i;
    for (int i = 0; i < rightHandSides.size(); ++i) {
        for (const ExprNode &node : rightHandSides[i].nodes()) {
            if (node.kind == ExprNode::Variable && node.value == 0) { // "t"
                equationsUsingTime << i;
                break;
            }
        }
    }

    hasParameterDependentEvents = doseEventsDependOnParameters(doseEvents);
    buildSchedule(QVector<double>(numParameters, std::numeric_limits<double>::quiet_NaN()));
}

int model_ode::gridIndexOf(double t) const
{
    const auto found = std::lower_bound(timePoints.begin(), timePoints.end(), t);
    return found != timePoints.end() && *found == t ? int(found - timePoints.begin()) : -1;
}

void model_ode::buildSchedule(const QVector<double> &parameters)
{
    if (hasParameterDependentEvents)
        evaluateDoseEvents(doseEvents, parameters);

    QVector<double> times = observationTimes;
    for (const DoseEvent &event : qAsConst(doseEvents)) {
        times << event.time;
        if (event.duration > 0)
            times << event.time + event.duration;
    }
    times << 0.0;
    times.erase(std::remove_if(times.begin(), times.end(), [](double t) { return std::isnan(t); }),
                times.end());
    std::sort(times.begin(), times.end());
    times.erase(std::unique(times.begin(), times.end()), times.end());
    timePoints = times;

    const int n = timePoints.size();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    bolusDose = QVector<QVector<double>>(n, QVector<double>(numStateVariables, 0.0));
    setValue = QVector<QVector<double>>(n, QVector<double>(numStateVariables, nan));
    auto validCompartment = [this](const DoseEvent &event) {
        return event.compartmentIndex >= 0 && event.compartmentIndex < numStateVariables;
    };
    // Each event is placed by binary search on the sorted grid, so building
    // the schedule takes O((events + observations) log grid) plus the
    // infusion entries themselves.
    for (const DoseEvent &event : qAsConst(doseEvents)) {
        const int i = gridIndexOf(event.time);
        if (i < 0 || !validCompartment(event))
            continue;
        if (event.duration == 0)
            bolusDose[i][event.compartmentIndex] += event.dosage;
        else if (event.duration == DoseDuration::SetValue)
            setValue[i][event.compartmentIndex] = event.dosage;
    }

    errorMessages.clear();
    infusionCompartments = QVector<QVector<int>>(n);
    infusionRates = QVector<QVector<double>>(n);
    // Interval i (between grid points i-1 and i) has midpoint midpoints[i-1];
    // the midpoints increase, so the intervals an infusion covers (time < m
    // < time + d) are one contiguous run.
    std::vector<double> midpoints;
    for (int i = 1; i < n; ++i)
        midpoints.push_back((timePoints[i - 1] + timePoints[i]) * 0.5);
    QStringList negativeDurations;
    for (int k = 0; k < doseEvents.size(); ++k) {
        const DoseEvent &event = doseEvents[k];
        const double d = event.duration;
        if (d > 0) {
            if (!validCompartment(event))
                continue;
            const auto first = std::upper_bound(midpoints.begin(), midpoints.end(), event.time);
            const auto end = std::lower_bound(first, midpoints.end(), event.time + d);
            for (auto m = first; m != end; ++m) {
                const int i = int(m - midpoints.begin()) + 1;
                infusionCompartments[i] << event.compartmentIndex;
                infusionRates[i] << event.dosage / d;
            }
        } else if (d < 0 && d != DoseDuration::SetValue) {
            negativeDurations << QStringLiteral("Error on %1th dose event: Infusion administration "
                                                "duration cannot be less than 0.")
                                         .arg(k + 1);
        }
    }
    // Once per interval, as the check sits in the interval loop.
    for (int i = 1; i < n; ++i)
        errorMessages << negativeDurations;

    observationTimeIndex.clear();
    observationTimeIndex.reserve(observationTimes.size());
    for (double t : qAsConst(observationTimes))
        observationTimeIndex << gridIndexOf(t);

    // The records grouped by grid point, in record order within a point.
    gridRecordStart.fill(0, n + 1);
    for (int index : qAsConst(observationTimeIndex))
        if (index >= 0)
            ++gridRecordStart[index + 1];
    for (int i = 0; i < n; ++i)
        gridRecordStart[i + 1] += gridRecordStart[i];
    gridRecords.resize(gridRecordStart[n]);
    QVector<int> filled = gridRecordStart;
    for (int r = 0; r < observationTimeIndex.size(); ++r)
        if (observationTimeIndex[r] >= 0)
            gridRecords[filled[observationTimeIndex[r]]++] = r;
}
