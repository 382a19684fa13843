#pragma once

class QTextEdit;
class MainWindowActions;
class ModelEditorStep;
class DoseEventsStep;
class ParameterStep;
class ObservationStep;
class RunStep;
class ResultsStep;
class SimulationStep;
class ProjectFolder;
class ProjectDocument;

// Everything one part of the window may reach in another: the shared error
// pane, the actions, the workflow steps and the project folder. The window
// owns all of them; the pointers are set once while it is constructed and stay
// valid as long as the window lives. A step that needs another step's data
// (the run reading every table, the dose check reading the ODE system) goes
// through here instead of through the window.
struct Workbench {
    QTextEdit *errorPane = nullptr; // textEdit_error
    MainWindowActions *actions = nullptr;

    ModelEditorStep *modelEditor = nullptr;  // Step1
    DoseEventsStep *doseEvents = nullptr;    // Step2
    ParameterStep *parameters = nullptr;     // Step3 and Step3-2
    ObservationStep *observations = nullptr; // Step4
    RunStep *run = nullptr;                  // Step5
    ResultsStep *results = nullptr;          // Step6
    SimulationStep *simulation = nullptr;    // Step7
    ProjectFolder *project = nullptr;        // save and load
    // The inputs of every step, the model built from them and the current
    // result.
    ProjectDocument *document = nullptr;

    // Enables or disables every model-defining widget of every step together
    // (the window's enable_model_related_UI).
    void setModelEditable(bool enable) const;
    // Idle (false) or computing (true): the enable rules of the actions.
    void setComputing(bool computing) const;
};
