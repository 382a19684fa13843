// Expression parse and evaluate: the compiled program must give exactly what
// the literal reduction gives.
#include "FuzzSupport.h"
#include "expression/ExpressionParser.h"

#include <cmath>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    ExpressionParser parser(fuzzText(data, size));
    parser.parse({"t", "A", "B", "k", "V"});
    const double values[] = {0.5, 1.5, -2.0, 0.3, 40.0};
    const double compiled = parser.evaluate(values, 5);
    // The literal reduction is the reference, quadratic in the nodes: it
    // checks the lists that fit a formula a person writes.
    if (parser.nodes().size() > 400)
        return 0;
    const double reduced = ExpressionParser::evaluateByReduction(parser.nodes(), values, 5);
    if (!(compiled == reduced) && !(std::isnan(compiled) && std::isnan(reduced)))
        std::abort();
    return 0;
}
