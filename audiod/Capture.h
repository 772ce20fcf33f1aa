#pragma once

#include "SoundServer.h"
#include "Waiting.h"

#include <QThread>

#include <pulse/stream.h>

class WavFile;

/// Records the default source into a WAV file: 16 bits, one channel, 48 kHz. The file is written by a thread of its
/// own, because a slow storage must not hold up a call.
class Capture : public QObject
{
    Q_OBJECT

public:
    explicit Capture(SoundServer& server);
    ~Capture() override;

    /// Whether it records, or is about to.
    bool IsEnabled() const { return state != State::Idle; }
    /// @param path absolute, of a regular file, which is replaced, or of none.
    /// @param answer is called when the recording runs or when it is clear that it will not: see IsEnabled().
    void Start(const QString& path, const std::function<void()>& answer);
    /// Ends the recording; the file is complete soon after.
    void Stop();

private:
    enum class State {
        Idle,
        AwaitingServer,
        Opening,    ///< the file
        Connecting, ///< the stream
        Recording,
    };

    void Open();
    void Fail(const QString& problem);
    void OnOpened(int number, const QString& problem);
    void OnStreamState();
    void OnData();
    void Write(const QByteArray& samples);
    void End();

    SoundServer& server;
    State state = State::Idle;
    QString path;
    pa_stream* stream = nullptr;
    Waiting waiting;

    QThread* const writer;
    WavFile* file;  ///< lives in the writer's thread
    int number = 0; ///< of the recording, by which late news of an earlier one are known
    qsizetype unwritten = 0;
};
