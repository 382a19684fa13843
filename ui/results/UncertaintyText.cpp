#include "UncertaintyText.h"

#include <QCoreApplication>

namespace {

QString tr(const char *text)
{
    return QCoreApplication::translate("UncertaintyText", text);
}

QString statusText(AsymptoticUncertainty::Status status)
{
    using Status = AsymptoticUncertainty::Status;
    switch (status) {
    case Status::Ok:
    case Status::NoJacobian:
        return QString();
    case Status::Unusable:
        return tr("The Jacobian holds values that are not numbers: no standard errors.");
    case Status::TooFewObservations:
        return tr("There are no more observations than estimated parameters: no standard errors.");
    case Status::Singular:
        return tr("The Jacobian is singular: the data do not determine every parameter (see the flat "
                  "envelopes on SSR-Parameter); the parameters they do not determine are not identifiable "
                  "and have no standard errors.");
    }
    return QString();
}

} // namespace

QString uncertaintySourceText(JacobianOrigin origin, int iteration, AsymptoticUncertainty::Status status)
{
    QString text;
    switch (origin) {
    case JacobianOrigin::None:
        text = tr("No Jacobian at the best point yet: press \"Compute Jacobian\" in Step7 for the asymptotic "
                  "standard errors.");
        break;
    case JacobianOrigin::ModelDoesNotFit:
        text = tr("The model of Steps 1 to 4 does not match this result: no standard errors.");
        break;
    case JacobianOrigin::LastStep:
        text = tr("Standard errors from the Jacobian of the run's last step (a regression over the cluster "
                  "near the best point of iteration %1); \"Compute Jacobian\" in Step7 gives the exact one.")
                       .arg(iteration);
        break;
    case JacobianOrigin::FiniteDifferences:
        text = tr("Standard errors from the Jacobian at the best point of iteration %1 (finite differences "
                  "of the Stage 2 model, unit weights).")
                       .arg(iteration);
        break;
    }
    const QString problem = statusText(status);
    return problem.isEmpty() ? text : text + QLatin1Char(' ') + problem;
}
