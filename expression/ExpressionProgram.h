#pragma once

#include "ExpressionParser.h"

#include <cstdint>
#include <vector>

// The straight-line program that a postfix node list reduces to. Every
// reduction step of the scan-and-reduce evaluation becomes one instruction
// whose operands are read directly from the values vector, from a constant or
// from a small value stack; constant sub-expressions are folded and
// parenthesis identity nodes vanish. A node list whose reduction fails for
// structural reasons compiles to a program that returns NaN.
struct ExpressionParser::Program {
    // Where the operands of a two-operand instruction come from:
    // V = a variable, C = a constant, S = the value stack.
    enum Form : std::uint16_t { VV, VC, CV, SV, SC, VS, CS, SS, FormCount };
    enum : std::uint16_t {
        PushVariable = 5 * FormCount,
        UnaryBase = 64, // + (code - 100) for codes 100..114
        UnaryOther = 96,
    };
    enum class ResultKind { Constant, Variable, Stack, NotANumber };

    struct Instruction {
        std::uint16_t op = 0;
        std::uint32_t a = 0; // variable index of the left (or only) operand
        std::uint32_t b = 0; // variable index of the right operand
        double c = 0;        // constant operand, or the operator code for UnaryOther
    };

    std::vector<Instruction> code;
    ResultKind resultKind = ResultKind::NotANumber;
    double resultConstant = 0;
    std::uint32_t resultVariable = 0;
    int maxDepth = 0;
    // Highest variable index any node refers to; -1 when none.
    long long maxVariableIndex = -1;
    // Set for a variable node with a negative or fractional index and for an
    // unknown operator code: only the literal reduction reproduces what
    // happens then, diagnostics included.
    bool reductionOnly = false;

    static Program compile(const QVector<ExprNode> &nodes);

    bool canRun(std::size_t count) const
    {
        return !reductionOnly && static_cast<long long>(count) > maxVariableIndex;
    }
    double run(const double *values) const;
};
