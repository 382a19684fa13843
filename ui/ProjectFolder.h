#pragma once

#include <QObject>
#include <QString>

#include <functional>

struct Workbench;
class QTableWidget;

// The project folder behind the window: saving the model into it and
// loading a model from it, reading and writing every step's widgets through
// the Workbench.
class ProjectFolder : public QObject {
    Q_OBJECT
public:
    ProjectFolder(const Workbench &workbench, QObject *parent);

    // Empty until the first save asks for it or a load sets it.
    const QString &folder() const { return m_folder; }

    // Saves the model into the current folder, asking for one ("Choose
    // Saving Directory") when there is none; a cancelled dialog saves nothing.
    void save();
    // Asks for a folder ("Choose Directory") and loads it.
    void open();
    // Loads the project in folder into the window and makes it current.
    void openFolder(const QString &folder);

private:
    QString chooseFolder(const QString &title) const;
    // The window's title names the current project folder.
    void showFolderInTitle() const;
    // Runs one step of a load; an exception ends that step alone, with a
    // message box, and the load goes on.
    void loadStep(const QString &failureText, const std::function<void()> &step);
    void loadModelTexts();
    void loadTables();
    void loadResult();
    // The text file's lines joined with "\n" into setText; a missing file
    // leaves the editor alone and writes "could not find <name> file".
    bool loadText(const QString &name, const std::function<void(const QString &)> &setText) const;

    const Workbench &m_workbench;
    QString m_folder;
};

// Reads a table file into the widget like the table reader, then gives back
// the header columns a shorter file dropped (the free-text note columns), so
// the table keeps its layout.
void readTableKeepingHeaders(const QString &path, QTableWidget *table);
