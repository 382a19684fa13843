#include "EvaluationMessages.h"

#include <QCryptographicHash>
#include <QDataStream>

namespace {

// One fixed stream version, so that ranks built against different Qt 5
// releases still read each other.
const QDataStream::Version kStreamVersion = QDataStream::Qt_5_12;

QDataStream &operator<<(QDataStream &stream, const TableCells &table)
{
    stream << qint32(table.rowCount()) << qint32(table.columnCount());
    for (const QVector<TableCells::Cell> &row : table.rows)
        for (const TableCells::Cell &cell : row)
            stream << bool(cell) << cell.value_or(QString());
    return stream;
}

// Writes through a stream into a byte array.
template<typename Write>
QByteArray streamed(Write write)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(kStreamVersion);
    write(stream);
    return bytes;
}

// Reads through a stream; true when everything read was there and nothing
// is left over.
template<typename Read>
bool readAll(const QByteArray &bytes, Read read)
{
    QDataStream stream(bytes);
    stream.setVersion(kStreamVersion);
    read(stream);
    return stream.status() == QDataStream::Ok && stream.atEnd();
}

} // namespace

QByteArray modelFingerprint(const ProjectInputs &inputs)
{
    const QByteArray bytes = streamed([&](QDataStream &s) {
        s << inputs.odeText << inputs.auxiliaryText << inputs.parameterSpecification << inputs.gText
          << inputs.gInverseText << inputs.doseEvents << inputs.observations;
    });
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256);
}

QByteArray encodeSetup(const EvaluationSetup &setup)
{
    return streamed([&](QDataStream &s) {
        s << setup.fingerprint << setup.stage1RelativeTolerance << setup.stage1AbsoluteTolerance
          << setup.timeLimitMs;
    });
}

bool decodeSetup(const QByteArray &bytes, EvaluationSetup &setup)
{
    return readAll(bytes, [&](QDataStream &s) {
        s >> setup.fingerprint >> setup.stage1RelativeTolerance >> setup.stage1AbsoluteTolerance >>
                setup.timeLimitMs;
    });
}

QByteArray encodeReply(const SetupReply &reply)
{
    return streamed([&](QDataStream &s) { s << reply.status << reply.threads << reply.message; });
}

bool decodeReply(const QByteArray &bytes, SetupReply &reply)
{
    return readAll(bytes, [&](QDataStream &s) { s >> reply.status >> reply.threads >> reply.message; });
}

QByteArray encodeWork(const WorkChunk &chunk)
{
    return streamed([&](QDataStream &s) { s << chunk.stage2 << chunk.rows; });
}

bool decodeWork(const QByteArray &bytes, WorkChunk &chunk)
{
    return readAll(bytes, [&](QDataStream &s) { s >> chunk.stage2 >> chunk.rows; });
}

QByteArray encodeResults(const QVector<PointEvaluation> &points)
{
    return streamed([&](QDataStream &s) {
        s << qint32(points.size());
        for (const PointEvaluation &point : points)
            s << point.parameters << point.solution << point.outputs;
    });
}

bool decodeResults(const QByteArray &bytes, int expectedRows, QVector<PointEvaluation> &points)
{
    return readAll(bytes, [&](QDataStream &s) {
        qint32 count = 0;
        s >> count;
        if (count != expectedRows)
            return s.setStatus(QDataStream::ReadCorruptData);
        points.resize(count);
        for (PointEvaluation &point : points)
            s >> point.parameters >> point.solution >> point.outputs;
    });
}
