#pragma once

#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <cstddef>
#include <cstdint>

// Qt's debug and warning lines (the parsers' diagnostics) would flood the
// fuzzer's log and slow every input; fatal messages still abort.
inline const bool kQuietQt = [] {
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    return true;
}();

// The fuzz input as text, as a user's file would be read.
inline QString fuzzText(const uint8_t *data, size_t size)
{
    return QString::fromUtf8(reinterpret_cast<const char *>(data), int(size));
}

// The input cut into count parts at lines holding only "----" (missing parts
// are empty), so that one input can carry several texts or files.
inline QStringList fuzzParts(const uint8_t *data, size_t size, int count)
{
    QStringList parts = fuzzText(data, size).split(QStringLiteral("\n----\n"));
    while (parts.size() < count)
        parts << QString();
    return parts.mid(0, count);
}
