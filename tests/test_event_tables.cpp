#include "model/EventTables.h"

#include <QtTest>

#include <cmath>

namespace {

const QStringList stateNames{"Depot", "Central"};
const QStringList parameterNames{"CL", "V"};
const QVector<double> parameterValues{2.0, 10.0};

const QString notFound =
        "Dosing compartment not found.  It should be selected from the following: Depot  Central";

} // namespace

Q_DECLARE_METATYPE(DoseColumn)
Q_DECLARE_METATYPE(DoseTable)
Q_DECLARE_METATYPE(ObservationColumn)

class EventTablesTest : public QObject {
    Q_OBJECT

private slots:
    void numericCells_data();
    void numericCells();
    void doseCellErrors_data();
    void doseCellErrors();
    void observationCellErrors_data();
    void observationCellErrors();
    void doseTable();
    void observationTable();
    void reEvaluation();
};

void EventTablesTest::numericCells_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<double>("value");
    QTest::addColumn<bool>("isExpression");
    QTest::addColumn<QString>("note");

    QTest::newRow("number with signed exponent") << "1e-3" << 0.001 << false << "";
    QTest::newRow("number with blanks") << " 1 000 " << 1000.0 << false << "";
    QTest::newRow("six significant digits") << "1/3" << 1.0 / 3.0 << true << "1/3=0.333333";
    QTest::newRow("parameters") << "CL*V+1" << 21.0 << true << "CL*V+1=21";
    QTest::newRow("unknown name") << "ka*2" << qQNaN() << false << "";
    QTest::newRow("nan is no number") << "nan" << qQNaN() << false << "";
    QTest::newRow("evaluates to NaN") << "LOG(0-1)" << qQNaN() << false << "";
}

void EventTablesTest::numericCells()
{
    QFETCH(QString, text);
    QFETCH(double, value);
    QFETCH(bool, isExpression);
    QFETCH(QString, note);

    const NumericCell cell = readNumericCell(text, parameterNames, parameterValues);
    if (std::isnan(value)) {
        QVERIFY(std::isnan(cell.value));
        QVERIFY(!cell.valid());
    } else {
        QCOMPARE(cell.value, value);
        QVERIFY(cell.valid());
    }
    QCOMPARE(cell.isExpression, isExpression);
    QCOMPARE(cell.note, note);
}

void EventTablesTest::doseCellErrors_data()
{
    QTest::addColumn<DoseTable>("table");
    QTest::addColumn<DoseColumn>("column");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("rowNumber");
    QTest::addColumn<QString>("error");

    const DoseTable estimation = DoseTable::Estimation;
    const DoseTable simulation = DoseTable::Simulation;
    QTest::newRow("time") << estimation << DoseColumn::Time << "abc" << 3
                          << "Error in Dosing Table (3th row Time):\nCould not evaluate the "
                             "expression for the dosage time.";
    QTest::newRow("duration") << estimation << DoseColumn::Duration << "" << 4
                              << "Error in Dosing Table (4th row Duration):\nCould not evaluate the "
                                 "tree.";
    QTest::newRow("simulation duration names its table")
            << simulation << DoseColumn::Duration << "x" << 2
            << "Error in Simulation Dosing Table (2th row Duration):\nCould not "
               "evaluate the tree.";
    QTest::newRow("simulation time does not")
            << simulation << DoseColumn::Time << "x" << 5
            << "Error in Dosing Table (5th row Time):\nCould not evaluate the "
               "expression for the dosage time.";
    QTest::newRow("duration -99 is accepted") << estimation << DoseColumn::Duration << "-99" << 1 << "";
    QTest::newRow("negative duration is left to the evaluation")
            << estimation << DoseColumn::Duration << "-1" << 1 << "";
}

void EventTablesTest::doseCellErrors()
{
    QFETCH(DoseTable, table);
    QFETCH(DoseColumn, column);
    QFETCH(QString, text);
    QFETCH(int, rowNumber);
    QFETCH(QString, error);

    DoseEvent event;
    const CellCheck check =
            readDoseCell(event, column, text, rowNumber, table, stateNames, parameterNames, parameterValues);
    QCOMPARE(check.valid, error.isEmpty());
    QCOMPARE(check.valid ? QString() : check.problem.text, error);
    if (!check.valid) {
        const double value = column == DoseColumn::Time     ? event.time
                             : column == DoseColumn::Dosage ? event.dosage
                                                            : event.duration;
        QVERIFY(column == DoseColumn::Compartment || std::isnan(value));
    }
}

void EventTablesTest::observationCellErrors_data()
{
    QTest::addColumn<ObservationColumn>("column");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("rowNumber");
    QTest::addColumn<QString>("error");

    QTest::newRow("time") << ObservationColumn::Time << "2*" << 7
                          << "Error in Observation Table (7th row Time):\n "
                             "Expression could not be understood.";
    QTest::newRow("variable with unknown name")
            << ObservationColumn::Variable << "Periph/V" << 1
            << "Error in Observation Table (1th row Compartment):\nVariables appear "
               "in the expression is not provided in the variable_name list.";
    QTest::newRow("empty variable") << ObservationColumn::Variable << "" << 3
                                    << "Error in Observation Table (3th row Compartment):\nCould not "
                                       "evaluate the tree.";
    QTest::newRow("variable over states, parameters and time")
            << ObservationColumn::Variable << "Central/V+0*t" << 1 << "";
}

void EventTablesTest::observationCellErrors()
{
    QFETCH(ObservationColumn, column);
    QFETCH(QString, text);
    QFETCH(int, rowNumber);
    QFETCH(QString, error);

    ObservationEvent event;
    const CellCheck check =
            readObservationCell(event, column, text, rowNumber, stateNames, parameterNames, parameterValues);
    QCOMPARE(check.valid, error.isEmpty());
    QCOMPARE(check.valid ? QString() : check.problem.text, error);
}

// A spare row is skipped; compartment names are case-sensitive; expression
// cells give notes; problems carry their place.
void EventTablesTest::doseTable()
{
    const DoseTableResult result =
            readDoseTable({{"0", "Depot", "100", "0", "first dose"},
                           {"", "", "", "", ""},
                           {"12", "central", "CL*50", "-99"},
                           {"24*V", "Central", "abc", "2"}},
                          DoseTable::Estimation, stateNames, parameterNames, parameterValues);
    QCOMPARE(result.rowOfRecord, (QVector<int>{0, 2, 3}));
    const DoseEvent &first = result.events[0], &second = result.events[1], &third = result.events[2];
    QVERIFY(first.compartmentIndex == 0 && !first.timeIsExpression && !first.dosageIsExpression &&
            !first.durationIsExpression);
    QVERIFY(!second.compartmentValid && second.dosage == 100.0 && second.dosageIsExpression);
    QCOMPARE(second.duration, DoseDuration::SetValue);
    QVERIFY(third.time == 240.0 && third.timeIsExpression && third.compartmentIndex == 1);
    QVERIFY(std::isnan(third.dosage));
    QCOMPARE(third.messages, QStringList{"Could not evaluate the tree."});
    QCOMPARE(problemTexts(result.problems),
             (QStringList{"Error in Dosing Table (3th row Compartment):\n" + notFound,
                          "Error in Dosing Table (4th row Dosage):\nCould not evaluate the tree."}));
    QCOMPARE(result.notes, (QStringList{"CL*50=100", "24*V=240"}));
    QCOMPARE(result.invalidCells.size(), 2);
    QVERIFY(result.invalidCells[0].row == 2 && result.invalidCells[0].column == int(DoseColumn::Compartment));
    QVERIFY(result.invalidCells[1].row == 3 && result.invalidCells[1].column == int(DoseColumn::Dosage));
}

void EventTablesTest::observationTable()
{
    const ObservationTableResult result =
            readObservationTable({{"2*3", "Central/V", "1.5"}, {"8", "Central", "x"}, {}}, stateNames,
                                 parameterNames, parameterValues);
    QCOMPARE(result.events.size(), 2);
    const ObservationEvent &first = result.events[0];
    QVERIFY(first.time == 6.0 && first.timeIsExpression && first.observedValue == 1.5);
    QCOMPARE(first.variableExpression.evaluate(QVector<double>{0, 1, 30, 2, 10}), 3.0);
    QVERIFY(std::isnan(result.events[1].observedValue));
    QCOMPARE(result.notes, QStringList{"2*3=6"});
    QCOMPARE(
            problemTexts(result.problems),
            QStringList{"Error in Observation Table (2th row Value):\n Expression could not be understood."});
}

// Expression cells are evaluated again for each parameter vector.
void EventTablesTest::reEvaluation()
{
    QVector<DoseEvent> events =
            readDoseTable({{"0", "Depot", "100", "0"}, {"V", "Depot", "CL*10", "CL"}}, DoseTable::Estimation,
                          stateNames, parameterNames, parameterValues)
                    .events;
    QVERIFY(!doseEventsDependOnParameters({events[0]}));
    QVERIFY(doseEventsDependOnParameters(events));
    evaluateDoseEvents(events, {3.0, 4.0});
    QVERIFY(events[0].dosage == 100.0 && events[1].time == 4.0 && events[1].dosage == 30.0 &&
            events[1].duration == 3.0);
    // A vector the expressions cannot use gives NaN, not a crash.
    evaluateDoseEvents(events, {});
    QVERIFY(std::isnan(events[1].time) && events[0].time == 0.0);

    OdeSystemText ode("dDepotdt = -ka*Depot\ndCentraldt = ka*Depot - CL/V*Central", "");
    ode.parseOdeSystem();
    QVector<ObservationEvent> observations =
            readObservationTable({{"CL+1", "Central/V", "ka"}}, ode, {5.0, 1.0, 0.5}).events;
    QCOMPARE(observations[0].observedValue, 0.5);
    evaluateObservationTimes(observations, {4.0, 1.0, 0.5});
    QCOMPARE(observations[0].time, 5.0);
}

QTEST_GUILESS_MAIN(EventTablesTest)
#include "test_event_tables.moc"
