#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include <sndfile.h>

/// Writes WAV files, one after another. It belongs in a thread that may wait for the storage.
class WavFile : public QObject
{
    Q_OBJECT

public:
    static constexpr int Rate = 48000;
    static constexpr int Channels = 1;

    ~WavFile() override { Close(); }

    /// Opens the file, whose contents remain until Begin().
    /// @param recording is passed on in the signals.
    void Open(int recording, const QString& path);
    /// Empties the file and writes the header.
    void Begin();
    /// @param samples 16 bits, in this machine's byte order.
    void Write(const QByteArray& samples);
    /// Completes the file.
    void Close();

Q_SIGNALS:
    /// @param problem empty on success.
    void Opened(int recording, const QString& problem);
    void Written(int recording, qsizetype bytes);
    void Failed(int recording, const QString& problem);

private:
    void Fail(const QString& problem);

    int recording = 0;
    int descriptor = -1;
    SNDFILE* sound = nullptr;
};
