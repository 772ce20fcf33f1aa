#pragma once

#include "PendingAnswers.h"
#include "SoundServer.h"

#include <QThread>

#include <pulse/stream.h>

class WavFile;

/// Records the default source into a WAV file: 16 bits, one channel, 48 kHz. A separate thread writes the file,
/// because slow storage must not delay a call.
class Capture : public QObject
{
    Q_OBJECT

public:
    explicit Capture(SoundServer& server);
    ~Capture() override;

    /// Returns whether it is recording or about to.
    bool IsEnabled() const { return state != State::Idle; }
    /// @param path absolute. An existing regular file is replaced; anything else is refused.
    /// @param answer is called when the recording has started or failed; IsEnabled() says which.
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
    PendingAnswers pendingAnswers;

    QThread* const writer;
    WavFile* file;  ///< lives in the writer's thread
    int number = 0; ///< of the recording; identifies late signals of an earlier one
    qsizetype unwritten = 0;
};
