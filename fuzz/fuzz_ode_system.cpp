// The ODE system text and the auxiliary functions (two parts of the input).
#include "FuzzSupport.h"
#include "model/OdeSystemText.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QStringList parts = fuzzParts(data, size, 2);
    OdeSystemText system(parts[0], parts[1]);
    system.parseOdeSystem();
    return 0;
}
