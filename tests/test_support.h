#pragma once

// Fixtures shared by the test suites: comparison of doubles with NaN
// handling, file helpers, example projects in temporary folders and small
// projects built from texts and cells.

#include "project/ProjectModel.h"
#include "project/TableCells.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cmath>
#include <limits>

const double kNaN = std::numeric_limits<double>::quiet_NaN();

// a and b agree to the relative tolerance rel (exactly when rel is 0); NaN
// matches NaN only.
inline bool closeTo(double a, double b, double rel = 0.0)
{
    if (std::isnan(a) || std::isnan(b))
        return std::isnan(a) && std::isnan(b);
    return a == b || std::fabs(a - b) <= rel * std::max(std::fabs(a), std::fabs(b));
}

// The same, element by element, for vectors and nested vectors of doubles.
template<typename Sequence>
bool closeTo(const Sequence &a, const Sequence &b, double rel = 0.0)
{
    if (a.size() != b.size())
        return false;
    auto j = b.begin();
    for (auto i = a.begin(); i != a.end(); ++i, ++j)
        if (!closeTo(*i, *j, rel))
            return false;
    return true;
}

inline QByteArray fileContent(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

inline bool writeFile(const QString &path, const QString &text)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(text.toUtf8()) >= 0;
}

#ifdef AMBREL_EXAMPLES_DIR
// The model files of an example project copied into dir; returns the copy's
// project folder.
inline QString copyExample(const QTemporaryDir &dir, const QString &example)
{
    const QDir source(QStringLiteral(AMBREL_EXAMPLES_DIR "/") + example + "/model");
    const QString folder = dir.path() + "/" + example;
    QDir().mkpath(folder + "/model");
    for (const QString &name : source.entryList(QDir::Files))
        QFile::copy(source.filePath(name), folder + "/model/" + name);
    return folder;
}
#endif

// A project built from texts and rows of cells, as the window holds them.
inline ProjectModel buildProject(const QString &odeText, const StringMatrix &specification,
                                 const QString &gText, const QString &gInverseText, const StringMatrix &doses,
                                 const StringMatrix &observations)
{
    ProjectInputs inputs;
    inputs.odeText = odeText;
    fillTableCells(inputs.parameterSpecification, specification);
    inputs.gText = gText;
    inputs.gInverseText = gInverseText;
    fillTableCells(inputs.doseEvents, doses);
    fillTableCells(inputs.observations, observations);
    return buildProjectModel(inputs);
}

inline QString problemsOf(const ProjectModel &model)
{
    return problemTexts(model.problems).join("; ");
}
