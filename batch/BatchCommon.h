#pragma once

#include "project/ProjectModel.h"

#include <QMultiMap>
#include <QString>
#include <QStringList>

#include <stdexcept>

// Exit status for invalid input: bad options, missing or malformed files.
constexpr int kInvalidInput = 2;

// A problem with the user's input: printed to standard error, exit status 2.
struct InputError : std::runtime_error {
    explicit InputError(const QString &message)
        : std::runtime_error(message.toStdString())
    {
    }
};

// Command-line arguments after the command and the project folder, read as
// "--name value" pairs and "--flag" switches.
class OptionReader {
public:
    OptionReader(const QStringList &arguments, const QStringList &valueOptions,
                 const QStringList &flagOptions);

    bool has(const QString &name) const { return m_flags.contains(name) || m_values.contains(name); }
    QStringList values(const QString &name) const { return m_values.values(name); }
    int intValue(const QString &name, int fallback, int minimum) const;
    double doubleValue(const QString &name, double fallback) const;

private:
    QMultiMap<QString, QString> m_values;
    QStringList m_flags;
};

// Loads and checks the project; throws InputError with every message.
ProjectModel loadCheckedProject(const QString &folder);

int runCommand(const QString &folder, const QStringList &arguments);
int simulateCommand(const QString &folder, const QStringList &arguments);
int exportCommand(const QString &folder, const QStringList &arguments);
