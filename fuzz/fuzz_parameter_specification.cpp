// The parameter specification, the generated transformation and its inverse,
// and user-written transformation texts (the input's second and third parts).
#include "FuzzSupport.h"
#include "model/ParameterSpecification.h"
#include "project/TableCells.h"
#include "project/TableFiles.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QStringList parts = fuzzParts(data, size, 3);
    const QStringList names{"CL", "V", "ka"};
    TableCells table;
    fillTableFromText(table, parts[0].split(QLatin1Char('\n')));
    const QVector<ParameterSpecificationRow> rows = readParameterSpecification(tableStringMatrix(table));
    if (!checkParameterSpecification(names, rows).isEmpty() || rows.size() < names.size())
        return 0;
    const int count = unfixedParameterIndices(rows).size();
    const TransformationText generated = generateTransformation(names, rows);
    for (const QString &g : {generated.g, parts[1]}) {
        const ParsedEquations parsed = parseTransformation(g, names, count);
        if (parsed.errors.isEmpty())
            applyTransformation(parsed, names, QVector<double>(count, 0.25));
    }
    for (const QString &inverse : {generated.gInverse, parts[2]})
        parseInverseTransformation(inverse, names, count);
    return 0;
}
