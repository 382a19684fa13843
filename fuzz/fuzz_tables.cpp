// The table readers and the event tables: the input as table text, read as a
// matrix, as table cells, and as dose and observation tables of a fixed
// two-compartment model.
#include "FuzzSupport.h"
#include "model/EventTables.h"
#include "model/OdeSystemText.h"
#include "project/TableCells.h"
#include "project/TableFiles.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static OdeSystemText system = [] {
        OdeSystemText s(QStringLiteral("dAgdt = -ka*Ag\ndAcdt = ka*Ag - CL/V*Ac"), QString());
        s.parseOdeSystem();
        return s;
    }();
    const QString text = fuzzText(data, size);
    textToDoubleMatrix(text);
    TableCells table;
    fillTableFromText(table, text.split(QLatin1Char('\n')));
    tableText(table);
    const QVector<QStringList> cells = tableStringMatrix(table);
    const QVector<double> parameters{4, 40, 1.2};
    for (DoseTable kind : {DoseTable::Estimation, DoseTable::Simulation})
        readDoseTable(cells, kind, system, parameters);
    readObservationTable(cells, system, parameters);
    return 0;
}
