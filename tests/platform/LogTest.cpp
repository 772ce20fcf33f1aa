#include <LogInterface.h>
#include <QRegularExpression>
#include <QTemporaryFile>
#include <QTest>

#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <pty.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace
{

constexpr int TimeLength = sizeof "2000-12-31T23:59:59.999";
constexpr char Origin[] = "/com/example/origin";

/// Does the work in child processes and returns what they write to standard error, one entry for each write.
QList<QByteArray> Writes(const std::function<void()>& work, int processes = 1)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0)
        return {};
    for (int i = 0; i < processes; ++i) {
        if (fork() == 0) {
            dup2(ends[1], STDERR_FILENO);
            work();
            _exit(0);
        }
    }
    close(ends[1]);

    QList<QByteArray> writes;
    char text[8192];
    for (ssize_t length = 0; (length = recv(ends[0], text, sizeof text, 0)) > 0;)
        writes.append(QByteArray(text, static_cast<int>(length)));
    close(ends[0]);
    while (wait(nullptr) > 0) {
    }
    return writes;
}

constexpr int AnotherUser = 65534;

/// Replaces standard error during its lifetime; -1 closes it.
class StandardError
{
public:
    explicit StandardError(int descriptor)
    {
        close(STDERR_FILENO);
        if (descriptor >= 0) {
            dup2(descriptor, STDERR_FILENO);
            close(descriptor);
        }
    }
    ~StandardError()
    {
        dup2(before, STDERR_FILENO);
        close(before);
    }

private:
    const int before = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
};

void EmitAllLevels()
{
    LogInterface log("/log");
    for (const unsigned int level : {1, 2, 4, 5, 9})
        log.EmitLogString(level, "text", "/o");
}

}

class LogTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        qunsetenv("KOVA_LOG_LEVEL");
        qunsetenv("JOURNAL_STREAM");
    }

    void EscapesControlCharacters()
    {
        const std::pair<const char*, QByteArray> rows[] = {
            {"[Gsm.cpp:1] 100% \\\nb\r\tc\x1b[1m\x7f", "[Gsm.cpp:1] 100% \\\\x0ab\\x0d\\x09c\\x1b[1m\\x7f"},
            {"\u00e9\u20ac\U0001f4de\xc2\xa0\xc2\x85z", "\u00e9\u20ac\U0001f4de\xc2\xa0\\xc2\\x85z"},
            {"\xf0\x9f\x93z\xe2\x82", "\\xf0\\x9f\\x93z\\xe2\\x82"}, // cut characters; then overlong and invalid ones
            {"\xc0\x8a\xe0\x80\x8a\xed\xa0\x80\xf4\x90\x80\x80",
             "\\xc0\\x8a\\xe0\\x80\\x8a\\xed\\xa0\\x80\\xf4\\x90\\x80\\x80"},
            {nullptr, ""},
        };
        for (const auto& [text, shown] : rows) {
            const QByteArray line =
                Writes([text = text] { LogInterface("/log").EmitLogString(2, text, Origin); }).value(0);
            QCOMPARE(line.mid(TimeLength), QByteArray("L2 ") + Origin + ' ' + shown + '\n');
        }
    }

    void WritesUpToTheLevelAskedFor()
    {
        QCOMPARE(Writes(EmitAllLevels).size(), 4); // all but traces
        const std::pair<const char*, int> lines[] = {{"0", 0}, {"1", 1}, {"9", 5}, {"9x", 4}, {"-1", 4}, {"", 4}};
        for (const auto& [level, count] : lines) {
            qputenv("KOVA_LOG_LEVEL", level);
            QVERIFY2(Writes(EmitAllLevels).size() == count, level);
        }
    }

    void LeavesTheTimeToTheJournal()
    {
        qputenv("KOVA_LOG_LEVEL", "9");
        const auto emitAs = [](const char* suffix) {
            struct stat status = {};
            fstat(STDERR_FILENO, &status);
            qputenv("JOURNAL_STREAM", QByteArray::number(quint64(status.st_dev)) + ':' +
                                          QByteArray::number(quint64(status.st_ino)) + suffix);
            EmitAllLevels();
        };
        QCOMPARE(Writes([&] { emitAs(""); }),
                 QList<QByteArray>(
                     {"<3>L1 /o text\n", "<4>L2 /o text\n", "<6>L4 /o text\n", "<6>L5 /o text\n", "<7>L9 /o text\n"}));
        // Inherited by a program whose standard error goes elsewhere.
        QVERIFY(!Writes([&] { emitAs("1"); }).value(0, "<").startsWith('<'));
    }

    void KeepsLinesOfThreadsAndProcessesApart()
    {
        constexpr int Processes = 2;
        constexpr int Threads = 3;
        constexpr int Lines = 25;         // no more than the socket holds
        const std::string text(511, 'x'); // the longest the service sends

        const auto emitLines = [&] {
            LogInterface log("/log");
            std::vector<std::jthread> threads;
            for (int thread = 0; thread < Threads; ++thread)
                threads.emplace_back([&] {
                    for (int line = 0; line < Lines; ++line)
                        log.EmitLogString(4, text.c_str(), Origin);
                });
        };
        const QList<QByteArray> writes = Writes(emitLines, Processes);
        QCOMPARE(writes.size(), Processes * Threads * Lines);
        static const QRegularExpression whole(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3} L4 \S+ x{511}\n$)");
        for (const QByteArray& line : writes)
            QVERIFY2(whole.match(QString::fromUtf8(line)).hasMatch(), line.constData());
    }

    void CountsLinesThatAStalledReaderMisses_data()
    {
        QTest::addColumn<int>("user");
        QTest::newRow("pipe") << 0;
        QTest::newRow("pipe of another user") << AnotherUser;
        QTest::newRow("socket") << 0;
        QTest::newRow("terminal") << 0;
        QTest::newRow("terminal of another user") << AnotherUser;
    }

    void CountsLinesThatAStalledReaderMisses()
    {
        QFETCH(int, user);
        constexpr int Lines = 1000;
        const QByteArray stream = QTest::currentDataTag();
        int ends[2];
        if (stream.startsWith("terminal")) {
            QCOMPARE(openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr), 0);
            QCOMPARE(fchmod(ends[1], S_IRUSR), 0);
        } else {
            QCOMPARE(stream == "socket" ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends) : pipe(ends), 0);
        }
        const auto readAll = [&] {
            QByteArray text;
            char part[4096];
            pollfd end = {ends[0], POLLIN, 0};
            for (ssize_t length = 0; poll(&end, 1, 0) > 0 && (length = read(ends[0], part, sizeof part)) > 0;)
                text.append(part, static_cast<int>(length));
            return text.replace("\r\n", "\n");
        };

        const StandardError redirected(ends[1]);
        if (user != 0 && seteuid(user) != 0)
            QSKIP("Only root can open a stream of another user");
        LogInterface log("/log");
        QCOMPARE(seteuid(getuid()), 0);
        const std::string text(5000, 'x'); // more than a pipe takes atomically
        for (int line = 0; line < Lines; ++line)
            log.EmitLogString(4, text.c_str(), "/o");
        QCOMPARE(fcntl(STDERR_FILENO, F_GETFL) & O_NONBLOCK, 0); // other processes share it

        QByteArray written = readAll();
        for (const char* last : {"last", "after the last"}) {
            log.EmitLogString(4, last, "/o");
            written += readAll();
        }
        QList<QByteArray> lines = written.split('\n');
        QCOMPARE(lines.takeLast(), QByteArray());
        QVERIFY(lines.size() > 3);
        QVERIFY(lines.takeLast().endsWith(" L4 /o after the last"));
        QVERIFY(lines.takeLast().endsWith(" L4 /o last"));
        static const QRegularExpression loss(
            R"(^\S+ L1 /log \[platform/log/LogInterface.cpp:\d+\] void LogInterface::EmitLogString\(.*\): Lines lost.*: (\d+)$)");
        const int lost = loss.match(lines.takeLast()).captured(1).toInt();
        QCOMPARE(lines.size() + lost, Lines);
        for (const QByteArray& line : lines)
            QCOMPARE(line.mid(TimeLength), QByteArray("L4 /o ") + text.c_str());
        close(ends[0]);
        log.EmitLogString(1, "nobody reads this", "/o");
    }

    void LeavesAFileWithItsNumberAlone()
    {
        const StandardError closed(-1);
        LogInterface log("/log");
        QTemporaryFile file;
        QVERIFY(file.open());
        QCOMPARE(dup2(file.handle(), STDERR_FILENO), STDERR_FILENO);
        log.EmitLogString(1, "text", "/o");
        QCOMPARE(QFileInfo(file.fileName()).size(), 0);
    }
};

QTEST_GUILESS_MAIN(LogTest)
#include "LogTest.moc"
