#include "ProjectFolder.h"

ProjectFolder::ProjectFolder(const Workbench &workbench, QObject *parent)
    : QObject(parent)
    , m_workbench(workbench)
{
}

void ProjectFolder::save()
{
    // Filled in with the project save: asks for the folder once, writes the model files.
}

void ProjectFolder::open()
{
    // Filled in with the project load: asks for the folder, then openFolder().
}

void ProjectFolder::openFolder(const QString &)
{
    // Filled in with the project load.
}
