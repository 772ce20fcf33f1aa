#pragma once

#include <QFile>
#include <QTemporaryDir>

/// The input of a fuzzer as a file, in a folder that lasts as long as the process.
inline QString InputFile(const unsigned char* data, std::size_t size)
{
    static const QTemporaryDir folder;
    QFile file(folder.filePath(QStringLiteral("input")));
    if (!file.open(QIODevice::WriteOnly) || file.write(reinterpret_cast<const char*>(data), size) != qint64(size))
        qFatal("Cannot write %s", qPrintable(file.fileName()));
    return file.fileName();
}
