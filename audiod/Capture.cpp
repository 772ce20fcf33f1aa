#include "Capture.h"

#include "AudioLog.h"
#include "WavFile.h"

#include <QDir>
#include <QMetaObject>

namespace
{

constexpr qsizetype BlockBytes = WavFile::Rate / 10 * qsizetype(sizeof(short)) * WavFile::Channels;
/// The limit on what is buffered for the storage: ten seconds.
constexpr qsizetype MostUnwritten = 100 * BlockBytes;
/// The time that this process waits for the storage at its end.
constexpr int LastWriteMs = 1000;

}

Capture::Capture(SoundServer& server) : server(server), writer(new QThread), file(new WavFile)
{
    file->moveToThread(writer);
    connect(file, &WavFile::Opened, this, &Capture::OnOpened);
    connect(file, &WavFile::Written, this, [this](int recording, qsizetype bytes) {
        if (recording == number)
            unwritten -= bytes;
    });
    connect(file, &WavFile::Failed, this, [this](int recording, const QString& problem) {
        if (recording == number && IsEnabled())
            Fail(problem);
    });
    connect(&server, &SoundServer::Lost, this, [this] {
        if (stream || state == State::AwaitingServer)
            Fail(this->server.Error());
    });
    connect(&server, &SoundServer::Ready, this, [this] {
        if (state == State::AwaitingServer)
            Open();
    });
    connect(&pendingAnswers, &PendingAnswers::TimedOut, this, [this] { Fail(QStringLiteral("no answer in time")); });
}

Capture::~Capture()
{
    End();
    writer->quit();
    // Abandon a thread whose storage hangs. It ends with the process.
    if (!writer->wait(LastWriteMs))
        return;
    delete file;
    delete writer;
}

void Capture::Start(const QString& path, const std::function<void()>& answer)
{
    ++number;
    unwritten = 0;
    this->path = path;
    state = State::AwaitingServer;
    pendingAnswers.Add(answer);

    // A relative path would refer to the daemon's folder, not the caller's.
    if (!QDir::isAbsolutePath(path))
        Fail(QStringLiteral("the path is not absolute"));
    else if (server.IsReady())
        Open();
    else
        server.Connect();
}

void Capture::Open()
{
    state = State::Opening;
    // Start the thread only when it is needed.
    writer->start();
    QMetaObject::invokeMethod(file, [file = file, number = number, path = path] { file->Open(number, path); });
}

void Capture::OnOpened(int recording, const QString& problem)
{
    if (recording != number || state != State::Opening)
        return;
    if (!problem.isEmpty() || !server.IsReady()) {
        Fail(problem.isEmpty() ? server.Error() : problem);
        return;
    }

    state = State::Connecting;
    const pa_sample_spec format = {PA_SAMPLE_S16NE, WavFile::Rate, WavFile::Channels};
    stream = pa_stream_new(server.Context(), "capture", &format, nullptr);
    if (!stream) {
        Fail(server.Error());
        return;
    }
    pa_stream_set_state_callback(
        stream, [](pa_stream*, void* self) { static_cast<Capture*>(self)->OnStreamState(); }, this);
    pa_stream_set_read_callback(
        stream, [](pa_stream*, size_t, void* self) { static_cast<Capture*>(self)->OnData(); }, this);
    pa_buffer_attr buffer;
    buffer.maxlength = buffer.tlength = buffer.prebuf = buffer.minreq = UINT32_MAX; // chosen by the server
    buffer.fragsize = static_cast<uint32_t>(BlockBytes);
    if (pa_stream_connect_record(stream, nullptr, &buffer, PA_STREAM_ADJUST_LATENCY) < 0)
        Fail(server.Error());
}

void Capture::OnStreamState()
{
    const pa_stream_state_t streamState = pa_stream_get_state(stream);
    if (streamState == PA_STREAM_READY) {
        state = State::Recording;
        AUDIO_LOG(LogLevelProgress, "Capture to %s started", qPrintable(path));
        QMetaObject::invokeMethod(file, &WavFile::Begin);
        pendingAnswers.Release();
    } else if (!PA_STREAM_IS_GOOD(streamState)) {
        Fail(server.Error());
    }
}

void Capture::OnData()
{
    const void* data = nullptr;
    size_t size = 0;
    while (stream && pa_stream_peek(stream, &data, &size) == 0 && size > 0) {
        // A fragment without data is a hole in the stream: record silence.
        const auto bytes = static_cast<qsizetype>(size);
        const QByteArray samples = data ? QByteArray(static_cast<const char*>(data), bytes) : QByteArray(bytes, '\0');
        pa_stream_drop(stream);
        unwritten += bytes;
        if (unwritten > MostUnwritten) {
            Fail(QStringLiteral("the storage is too slow"));
            return;
        }
        QMetaObject::invokeMethod(file, [file = file, samples] { file->Write(samples); });
    }
}

void Capture::Fail(const QString& problem)
{
    AUDIO_LOG(LogLevelError, "Capture to %s failed: %s", qPrintable(path), qPrintable(problem));
    End();
    pendingAnswers.Release();
}

void Capture::Stop()
{
    if (IsEnabled())
        AUDIO_LOG(LogLevelProgress, "Capture to %s stopped", qPrintable(path));
    End();
    pendingAnswers.Release();
}

void Capture::End()
{
    state = State::Idle;
    if (stream) {
        pa_stream_set_state_callback(stream, nullptr, nullptr);
        pa_stream_set_read_callback(stream, nullptr, nullptr);
        pa_stream_disconnect(stream);
        pa_stream_unref(stream);
        stream = nullptr;
    }
    if (writer->isRunning())
        QMetaObject::invokeMethod(file, &WavFile::Close);
}
