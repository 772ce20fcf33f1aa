#include <LogInterface.h>
#include <QRegularExpression>
#include <QTest>

#include <functional>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

constexpr char Origin[] = "/com/quillmark/kova/phonemanager/phoneobj";

/// What processes of their own write on standard error while they do the work: one entry a write.
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

    void ShowsWhatCouldForgeALine_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("shown");
        const auto row = [](const char* name, const char* text, const char* shown) {
            QTest::newRow(name) << QByteArray(text) << QByteArray(shown);
        };
        row("plain", "[Gsm.cpp:1] x 100% \\", "[Gsm.cpp:1] x 100% \\");
        row("controls", "a\nb\r\tc\x1b[1m\x7f", "a\\x0ab\\x0d\\x09c\\x1b[1m\\x7f");
        row("long characters", "\u00e9\u20ac\U0001f4de", "\u00e9\u20ac\U0001f4de");
        row("control of two bytes", "a\xc2\x85z\xc2\xa0", "a\\xc2\\x85z\xc2\xa0");
        row("cut character", "\xe2\x82", "\\xe2\\x82");
        row("cut, then text", "\xf0\x9f\x93z", "\\xf0\\x9f\\x93z");
        row("overlong", "\xc0\x8a\xe0\x80\x8a", "\\xc0\\x8a\\xe0\\x80\\x8a");
        row("no character", "\xed\xa0\x80\xf4\x90\x80\x80", "\\xed\\xa0\\x80\\xf4\\x90\\x80\\x80");
        row("null", nullptr, "");
    }

    void ShowsWhatCouldForgeALine()
    {
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, shown);
        const QByteArray line = Writes([&] {
                                    const char* const given = text.isNull() ? nullptr : text.constData();
                                    LogInterface("/log").EmitLogString(2, given, Origin);
                                }).value(0);

        static const QRegularExpression time(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3} )");
        const QRegularExpressionMatch match = time.match(QString::fromUtf8(line));
        QVERIFY2(match.hasMatch(), line.constData());
        QCOMPARE(line.mid(match.capturedLength()), QByteArray("L2 ") + Origin + ' ' + shown + '\n');
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
        constexpr int Lines = 100;
        const std::string text(511, 'x'); // the longest the service sends

        const QList<QByteArray> writes = Writes(
            [&] {
                LogInterface log("/log");
                std::thread threads[Threads];
                for (std::thread& thread : threads)
                    thread = std::thread([&] {
                        for (int line = 0; line < Lines; ++line)
                            log.EmitLogString(4, text.c_str(), Origin);
                    });
                for (std::thread& thread : threads)
                    thread.join();
            },
            Processes);
        QCOMPARE(writes.size(), Processes * Threads * Lines);
        static const QRegularExpression whole(R"(^\S+ L4 \S+ x{511}\n$)");
        for (const QByteArray& line : writes)
            QVERIFY2(whole.match(QString::fromUtf8(line)).hasMatch(), line.constData());
    }
};

QTEST_GUILESS_MAIN(LogTest)
#include "LogTest.moc"
