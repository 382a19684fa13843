#pragma once

#include <QObject>
#include <QString>

struct Workbench;

// The project folder behind the window: saving the model into it and
// loading a model from it, reading and writing every step's widgets through
// the Workbench.
class ProjectFolder : public QObject {
    Q_OBJECT
public:
    ProjectFolder(const Workbench &workbench, QObject *parent);

    // Empty until the first save asks for it or a load sets it.
    const QString &folder() const { return m_folder; }

    // Filled in with the project save and load.
    void save();
    void open();
    void openFolder(const QString &folder);

private:
    const Workbench &m_workbench;
    QString m_folder;
};
