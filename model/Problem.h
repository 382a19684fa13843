#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

// Where a problem in the user's input was found.
enum class ProblemSource {
    OdeSystem,
    ParameterSpecification,
    Transformation,
    InverseTransformation,
    DoseTable,
    SimulationDoseTable,
    ObservationTable,
    SimulationParameters,
    SimulationExpression,
    InitialCluster,
    ProjectFolder,
};

// A problem in the user's input, as data: its place and the system's text for
// it. The lines of a text are separated by "\n". The window renders the text
// (rich text in its error pane), the batch tool prints it as it is; nothing
// below the window adds markup.
struct Problem {
    ProblemSource source = ProblemSource::ProjectFolder;
    int row = -1;    // 0-based table row; -1 when not about a table cell
    int column = -1; // 0-based table column; -1 likewise
    QString text;

    bool operator==(const Problem &other) const
    {
        return source == other.source && row == other.row && column == other.column && text == other.text;
    }
};

using Problems = QVector<Problem>;

// The texts of problems, in order.
QStringList problemTexts(const Problems &problems);
// Problems of one source without a place, one per text.
Problems problemsFrom(ProblemSource source, const QStringList &texts);
