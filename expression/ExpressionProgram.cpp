#include "ExpressionProgram.h"

#include "ExpressionOperators.h"

#include <cmath>
#include <limits>

using Program = ExpressionParser::Program;

namespace {

// An entry of the symbolic working list: an operator node, or a value that is
// a constant, a variable or the result of an earlier instruction on the stack.
struct Symbol {
    enum Type { Operator, Constant, Variable, Stack } type;
    double value = 0;        // operator code or constant
    std::uint32_t index = 0; // variable index
};

struct Compiler {
    Program program;
    int depth = 0;

    void push() { program.maxDepth = std::max(program.maxDepth, ++depth); }

    Symbol binary(double code, const Symbol &left, const Symbol &right)
    {
        const int integerCode = static_cast<int>(code);
        if (integerCode != code || integerCode < 0 || integerCode > OpCode::Subtract) {
            // An unknown code is diagnosed during evaluation: leave it to the
            // literal reduction.
            program.reductionOnly = true;
            return Symbol{Symbol::Constant, 0, 0};
        }
        if (left.type == Symbol::Constant && right.type == Symbol::Constant)
            return Symbol{Symbol::Constant, ExprOps::binary(code, left.value, right.value), 0};
        Program::Instruction ins;
        Program::Form form;
        const bool l = left.type == Symbol::Stack, r = right.type == Symbol::Stack;
        auto operand = [&ins](const Symbol &s, bool isLeft) {
            if (s.type == Symbol::Variable)
                (isLeft ? ins.a : ins.b) = s.index;
            else if (s.type == Symbol::Constant)
                ins.c = s.value;
        };
        if (!l && !r) {
            form = left.type == Symbol::Variable
                           ? (right.type == Symbol::Variable ? Program::VV : Program::VC)
                           : Program::CV;
            push();
        } else if (l && !r) {
            form = right.type == Symbol::Variable ? Program::SV : Program::SC;
        } else if (!l && r) {
            form = left.type == Symbol::Variable ? Program::VS : Program::CS;
        } else {
            form = Program::SS;
            --depth;
        }
        operand(left, true);
        operand(right, false);
        ins.op = static_cast<std::uint16_t>(integerCode * Program::FormCount + form);
        program.code.push_back(ins);
        return Symbol{Symbol::Stack, 0, 0};
    }

    Symbol unary(double code, const Symbol &operand)
    {
        if (code == OpCode::OpenParen)
            return operand;
        if (operand.type == Symbol::Constant)
            return Symbol{Symbol::Constant, ExprOps::unary(code, operand.value), 0};
        if (operand.type == Symbol::Variable) {
            Program::Instruction load;
            load.op = Program::PushVariable;
            load.a = operand.index;
            program.code.push_back(load);
            push();
        }
        Program::Instruction ins;
        const int integerCode = static_cast<int>(code);
        if (integerCode == code && integerCode >= OpCode::OpenParen && integerCode <= OpCode::Ln)
            ins.op = static_cast<std::uint16_t>(Program::UnaryBase + integerCode - OpCode::OpenParen);
        else
            ins.op = Program::UnaryOther;
        ins.c = code;
        program.code.push_back(ins);
        return Symbol{Symbol::Stack, 0, 0};
    }

    void fail()
    {
        program.code.clear();
        program.resultKind = Program::ResultKind::NotANumber;
    }
};

} // namespace

Program Program::compile(const QVector<ExprNode> &nodes)
{
    Compiler c;
    std::vector<Symbol> list;
    list.reserve(std::size_t(nodes.size()));
    for (const ExprNode &node : nodes) {
        if (node.kind == ExprNode::Variable) {
            const double index = node.value;
            if (!(index >= 0) || index != std::floor(index) ||
                index > double(std::numeric_limits<std::uint32_t>::max())) {
                c.program.reductionOnly = true;
                return c.program;
            }
            c.program.maxVariableIndex = std::max(c.program.maxVariableIndex, static_cast<long long>(index));
            list.push_back(Symbol{Symbol::Variable, 0, static_cast<std::uint32_t>(index)});
        } else if (node.kind == ExprNode::Number) {
            list.push_back(Symbol{Symbol::Constant, node.value, 0});
        } else {
            list.push_back(Symbol{Symbol::Operator, node.value, 0});
        }
    }
    if (list.empty()) {
        c.fail();
        return c.program;
    }

    // The reduction always applies the first operator to the values just
    // before it, so the values left of the scan position behave as a stack:
    // one left-to-right pass with a stack performs the same reductions.
    std::vector<Symbol> stack;
    stack.reserve(list.size());
    if (list.size() == 1)
        stack.push_back(list.front());
    else {
        for (const Symbol &s : list) {
            if (s.type != Symbol::Operator) {
                stack.push_back(s);
                continue;
            }
            if (s.value >= OpCode::OpenParen && !stack.empty()) {
                stack.back() = c.unary(s.value, stack.back());
            } else {
                if (stack.size() < 2) {
                    c.fail();
                    return c.program;
                }
                const Symbol right = stack.back();
                stack.pop_back();
                stack.back() = c.binary(s.value, stack.back(), right);
            }
        }
        if (stack.size() != 1) {
            c.fail();
            return c.program;
        }
    }
    if (c.program.reductionOnly)
        return c.program;
    const Symbol &last = stack.front();
    switch (last.type) {
    case Symbol::Constant:
        c.program.resultKind = ResultKind::Constant;
        c.program.resultConstant = last.value;
        break;
    case Symbol::Variable:
        c.program.resultKind = ResultKind::Variable;
        c.program.resultVariable = last.index;
        break;
    case Symbol::Stack:
        c.program.resultKind = ResultKind::Stack;
        break;
    case Symbol::Operator:
        c.fail();
        break;
    }
    return c.program;
}

double Program::run(const double *values) const
{
    switch (resultKind) {
    case ResultKind::NotANumber:
        return std::numeric_limits<double>::quiet_NaN();
    case ResultKind::Constant:
        return resultConstant;
    case ResultKind::Variable:
        return values[resultVariable];
    case ResultKind::Stack:
        break;
    }

    constexpr int kInlineDepth = 64;
    double inlineStack[kInlineDepth];
    std::vector<double> heapStack;
    double *sp = inlineStack;
    if (maxDepth > kInlineDepth) {
        heapStack.resize(std::size_t(maxDepth));
        sp = heapStack.data();
    }
    --sp; // points at the top element; empty stack

#define AMBREL_BINARY_CASES(CODE, EXPR)                                                                      \
    case CODE *FormCount + VV: {                                                                             \
        const double a = values[in->a], b = values[in->b];                                                   \
        *++sp = (EXPR);                                                                                      \
        break;                                                                                               \
    }                                                                                                        \
    case CODE *FormCount + VC: {                                                                             \
        const double a = values[in->a], b = in->c;                                                           \
        *++sp = (EXPR);                                                                                      \
        break;                                                                                               \
    }                                                                                                        \
    case CODE *FormCount + CV: {                                                                             \
        const double a = in->c, b = values[in->b];                                                           \
        *++sp = (EXPR);                                                                                      \
        break;                                                                                               \
    }                                                                                                        \
    case CODE *FormCount + SV: {                                                                             \
        const double a = *sp, b = values[in->b];                                                             \
        *sp = (EXPR);                                                                                        \
        break;                                                                                               \
    }                                                                                                        \
    case CODE *FormCount + SC: {                                                                             \
        const double a = *sp, b = in->c;                                                                     \
        *sp = (EXPR);                                                                                        \
        break;                                                                                               \
    }                                                                                                        \
    case CODE *FormCount + VS: {                                                                             \
        const double a = values[in->a], b = *sp;                                                             \
        *sp = (EXPR);                                                                                        \
        break;                                                                                               \
    }                                                                                                        \
    case CODE *FormCount + CS: {                                                                             \
        const double a = in->c, b = *sp;                                                                     \
        *sp = (EXPR);                                                                                        \
        break;                                                                                               \
    }                                                                                                        \
    case CODE *FormCount + SS: {                                                                             \
        const double b = *sp--;                                                                              \
        const double a = *sp;                                                                                \
        *sp = (EXPR);                                                                                        \
        break;                                                                                               \
    }

#define AMBREL_UNARY_CASE(CODE, EXPR)                                                                        \
    case UnaryBase + (CODE - OpCode::OpenParen): {                                                           \
        const double v = *sp;                                                                                \
        *sp = (EXPR);                                                                                        \
        break;                                                                                               \
    }

    const Instruction *in = code.data();
    const Instruction *const end = in + code.size();
    for (; in != end; ++in) {
        switch (in->op) {
            AMBREL_BINARY_CASES(OpCode::Power, ExprOps::power(a, b))
            AMBREL_BINARY_CASES(OpCode::Multiply, a * b)
            AMBREL_BINARY_CASES(OpCode::Divide, a / b)
            AMBREL_BINARY_CASES(OpCode::Add, a + b)
            AMBREL_BINARY_CASES(OpCode::Subtract, a - b)
        case PushVariable:
            *++sp = values[in->a];
            break;
            AMBREL_UNARY_CASE(OpCode::Exp, std::exp(v))
            AMBREL_UNARY_CASE(OpCode::Log, std::log(v))
            AMBREL_UNARY_CASE(OpCode::Ln, std::log(v))
            AMBREL_UNARY_CASE(OpCode::Log10, std::log10(v))
            AMBREL_UNARY_CASE(OpCode::Abs, ExprOps::abs(v))
            AMBREL_UNARY_CASE(OpCode::Sign, ExprOps::sign(v))
            AMBREL_UNARY_CASE(OpCode::Sqrt, std::sqrt(v))
            AMBREL_UNARY_CASE(OpCode::Sin, std::sin(v))
            AMBREL_UNARY_CASE(OpCode::Cos, std::cos(v))
            AMBREL_UNARY_CASE(OpCode::Tan, std::tan(v))
            AMBREL_UNARY_CASE(OpCode::Asin, std::asin(v))
            AMBREL_UNARY_CASE(OpCode::Acos, std::acos(v))
            AMBREL_UNARY_CASE(OpCode::Atan, std::atan(v))
        default:
            *sp = ExprOps::unary(in->c, *sp);
            break;
        }
    }
#undef AMBREL_BINARY_CASES
#undef AMBREL_UNARY_CASE
    return *sp;
}
