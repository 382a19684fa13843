#pragma once

#include "ExpressionParser.h"

#include <QDebug>

#include <cmath>
#include <limits>

// The arithmetic of the expression language, shared by the compiled program
// and the literal reduction so that both compute bit-identical values.
namespace ExprOps {

// "^" is deliberately evaluated in single precision: both operands and the
// result are rounded to float.
inline double power(double base, double exponent)
{
    return static_cast<double>(::powf(static_cast<float>(base), static_cast<float>(exponent)));
}

inline double abs(double v)
{
    return v < 0 ? -v : v;
}

// NaN fails both comparisons and so has sign 1.
inline double sign(double v)
{
    return v < 0 ? -1.0 : (v == 0 ? 0.0 : 1.0);
}

inline double unary(double code, double v)
{
    const int integerCode = static_cast<int>(code);
    if (integerCode != code)
        return std::numeric_limits<double>::quiet_NaN();
    switch (integerCode) {
    case OpCode::OpenParen:
        return v;
    case OpCode::Exp:
        return std::exp(v);
    case OpCode::Log:
    case OpCode::Ln:
        return std::log(v);
    case OpCode::Log10:
        return std::log10(v);
    case OpCode::Abs:
        return abs(v);
    case OpCode::Sign:
        return sign(v);
    case OpCode::Sqrt:
        return std::sqrt(v);
    case OpCode::Sin:
        return std::sin(v);
    case OpCode::Cos:
        return std::cos(v);
    case OpCode::Tan:
        return std::tan(v);
    case OpCode::Asin:
        return std::asin(v);
    case OpCode::Acos:
        return std::acos(v);
    case OpCode::Atan:
        return std::atan(v);
    default:
        return std::numeric_limits<double>::quiet_NaN();
    }
}

inline double binary(double code, double a, double b)
{
    if (code == OpCode::Power)
        return power(a, b);
    if (code == OpCode::Multiply)
        return a * b;
    if (code == OpCode::Divide)
        return a / b;
    if (code == OpCode::Add)
        return a + b;
    if (code == OpCode::Subtract)
        return a - b;
    qDebug() << "Unknown operator code" << code;
    return std::numeric_limits<double>::quiet_NaN();
}

} // namespace ExprOps
