#include "WavFile.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace
{

constexpr mode_t FileMode = 0666;

}

void WavFile::Open(int recording, const QString& path)
{
    Close();
    this->recording = recording;

    // Do not wait for the other end of a pipe. Pipes are refused below.
    descriptor =
        open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, FileMode);
    struct stat status = {};
    QString problem;
    if (descriptor < 0 || fstat(descriptor, &status) < 0)
        problem = QString::fromLocal8Bit(std::strerror(errno));
    else if (!S_ISREG(status.st_mode))
        problem = QStringLiteral("not a regular file");

    if (!problem.isEmpty() && descriptor >= 0)
        close(std::exchange(descriptor, -1));
    Q_EMIT Opened(recording, problem);
}

void WavFile::Begin()
{
    if (descriptor < 0)
        return;
    SF_INFO format = {};
    format.samplerate = Rate;
    format.channels = Channels;
    format.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    if (ftruncate(descriptor, 0) != 0) {
        Fail(QString::fromLocal8Bit(std::strerror(errno)));
        return;
    }
    sound = sf_open_fd(descriptor, SFM_WRITE, &format, SF_FALSE);
    if (!sound) {
        Fail(QString::fromLocal8Bit(sf_strerror(nullptr)));
        return;
    }
    // Keep the file valid at every moment, in case this process is killed.
    sf_command(sound, SFC_SET_UPDATE_HEADER_AUTO, nullptr, SF_TRUE);
}

void WavFile::Write(const QByteArray& samples)
{
    Q_EMIT Written(recording, samples.size());
    if (!sound)
        return;
    const auto frames = static_cast<sf_count_t>(samples.size() / sizeof(short) / Channels);
    if (sf_writef_short(sound, reinterpret_cast<const short*>(samples.constData()), frames) != frames)
        Fail(QString::fromLocal8Bit(sf_strerror(sound)));
}

void WavFile::Fail(const QString& problem)
{
    Close();
    Q_EMIT Failed(recording, problem);
}

void WavFile::Close()
{
    if (sound)
        sf_close(std::exchange(sound, nullptr));
    if (descriptor >= 0)
        close(std::exchange(descriptor, -1));
}
