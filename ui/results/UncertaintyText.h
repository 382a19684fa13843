#pragma once

#include "analysis/Uncertainty.h"

#include <QString>

// Where the Jacobian behind the standard errors came from, for the label
// above them.
enum class JacobianOrigin { None, ModelDoesNotFit, LastStep, FiniteDifferences };

// The label text: the origin at the iteration, followed by what stands in
// the way of standard errors when the status is not Ok.
QString uncertaintySourceText(JacobianOrigin origin, int iteration, AsymptoticUncertainty::Status status);
