#include "LogCapture.h"

#include <Configuration.h>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <optional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace
{

QStringList diskSteps;

}

// The library's calls of these functions are recorded.

extern "C" int fsync(int descriptor)
{
    const QString path = QFile::symLinkTarget(QStringLiteral("/proc/self/fd/%1").arg(descriptor));
    diskSteps.append("sync " + QFileInfo(path).fileName());
    return static_cast<int>(syscall(SYS_fsync, descriptor));
}

extern "C" int rename(const char* from, const char* to)
{
    diskSteps.append("rename " + QFileInfo(to).fileName());
    return static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

namespace
{

QString Read(const QString& key = "enabled", const QString& section = "PHONE")
{
    bool ok = false;
    const QString value = Configuration("/client").ReadConfigValue(section, key, "default", &ok, true);
    return ok ? value : QString("invalid");
}

bool Write(const QString& value, const QString& key = "enabled", const QString& section = "PHONE")
{
    return Configuration("/client").WriteConfigValue(section, key, value, false);
}

}

class ConfigurationTest : public QObject
{
    Q_OBJECT

    std::optional<QTemporaryDir> folder;

    static QByteArray Store()
    {
        QFile file("config.ini");
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    /// Keeps the file's time the same, so that it does not reveal a change.
    static void SetStore(const QByteArray& text)
    {
        QFile file("config.ini");
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.flush());
        QVERIFY(file.setFileTime(QDateTime::fromSecsSinceEpoch(1000000000), QFileDevice::FileModificationTime));
    }

    static QStringList Entries()
    {
        return QDir().entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }

    /// Expects that a write fails and logs the reason.
    static void CheckNotWritten(const QByteArray& reason, const QString& value = "1")
    {
        TakeLog();
        QVERIFY(!Write(value));
        const QList<Logged> log = TakeLog();
        QCOMPARE(log.size(), 1);
        QCOMPARE(log[0].level, 1U);
        QCOMPARE(log[0].origin, QByteArray("/client"));
        QCOMPARE(log[0].Prefix(),
                 QByteArray("[platform/config/Configuration.cpp] bool Configuration::WriteConfigValue(const QString&, "
                            "const QString&, const QString&, bool)"));
        QCOMPARE(log[0].Message(), "Can't write settings: " + qgetenv("KOVA_CONFIG_FILE") + ": " + reason);
    }

    static void CheckRefused(const QByteArray& reason)
    {
        QVERIFY(!Configuration("/client").IsValid());
        QCOMPARE(Read(), QString("invalid"));
        CheckNotWritten(reason);
        QCOMPARE(Entries(), QStringList("config.ini"));
    }

private Q_SLOTS:
    void init()
    {
        folder.emplace();
        QVERIFY(folder->isValid() && QDir::setCurrent(folder->path()));
        qputenv("KOVA_CONFIG_FILE", QFile::encodeName(folder->filePath("config.ini")));
    }

    void CreatesTheTargetOfALink()
    {
        QVERIFY(QFile::link("new/folder/kova.ini", "config.ini"));
        QVERIFY(Configuration("/client").IsValid());
        QCOMPARE(Read(), QString("default"));
        QCOMPARE(Entries(), QStringList("config.ini"));

        for (const char* value : {"1", "0"}) {
            QVERIFY(Write(value));
            QCOMPARE(Read(), QString(value));
        }
        QVERIFY(QFileInfo("config.ini").isSymLink());
        QCOMPARE(QDir("new/folder").entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList("kova.ini"));
    }

    /// A power cut at any moment leaves the old file or the new one, and the new one after the write.
    void IsOnTheDiskAtTheEnd()
    {
        QVERIFY(Write("0"));
        diskSteps.clear();
        QVERIFY(Write("1"));
        diskSteps = diskSteps.mid(diskSteps.indexOf("sync config")); // after the making of the copy
        diskSteps.removeAll("rename config.ini.lock");
        QCOMPARE(diskSteps.join(", "), "sync config, rename config.ini, sync " + QFileInfo(folder->path()).fileName());
    }

    void KeepsEveryOtherValue()
    {
        const std::pair<const char*, const char*> rows[] = {
            {"PHONE", ""},
            {"PHONE", " a,b;c=\"d\"\\n%20 \n[x]"},
            {"PH\u00d6NE SETUP", "\u00e9\u20ac\U0001f4de"},
            {"PHONE", "@Variant("},
            {"General", "1"},
        };
        for (const auto& [section, value] : rows) {
            SetStore("[General]\nname=a, b\n[PHONE]\nenabled=0\nother=\"x;y\"\n");
            QVERIFY(QFile::setPermissions("config.ini", QFile::ReadOwner | QFile::WriteOwner));
            const QFile::Permissions permissions = QFile::permissions("config.ini");
            QVERIFY(Write(value, "enabled", section));
            QCOMPARE(Read("enabled", section), QString(value));
            QCOMPARE(Read("name", "General"), QString("a, b"));
            QCOMPARE(Read("other"), QString("x;y"));
            QCOMPARE(QFile::permissions("config.ini"), permissions);
        }
    }

    void RefusesInvalidFiles()
    {
        const QByteArray zeros(64, '\0'); // as after a power cut
        for (const QByteArray& text : {QByteArray("not a setting\n"), QByteArray("[PHONE\nenabled=1\n"), zeros}) {
            SetStore(text);
            CheckRefused("not an INI file");
            QCOMPARE(Store(), text);
        }

        constexpr off_t MaxSize = 1024 * 1024;
        constexpr off_t Huge = 100 * 1024 * MaxSize;
        SetStore("[PHONE]\nenabled=1\n;" + QByteArray(MaxSize, ' '));
        QCOMPARE(truncate("config.ini", MaxSize), 0);
        QCOMPARE(Read(), QString("1"));
        for (const off_t size : {MaxSize + 1, Huge}) {
            QCOMPARE(truncate("config.ini", size), 0);
            CheckRefused("larger than 1048576 bytes");
        }

        QCOMPARE(unlink("config.ini"), 0);
        QCOMPARE(mkdir("config.ini", 0755), 0);
        CheckRefused("not a regular file");
        QCOMPARE(rmdir("config.ini"), 0);
        QCOMPARE(mkfifo("config.ini", 0644), 0);
        CheckRefused("not a regular file");
        QCOMPARE(unlink("config.ini"), 0);
        QVERIFY(QFile::link("/dev/tty", "config.ini"));
        CheckRefused("not a regular file");
    }

    void LeavesOtherFilesAlone_data()
    {
        QTest::addColumn<QString>("name");
        for (const char* name : {"config.ini.new", "config.ini.new-AbCdEf"})
            QTest::newRow(name) << name;
    }

    void LeavesOtherFilesAlone()
    {
        QFETCH(QString, name);
        QVERIFY(QDir().mkpath("other/folder"));
        QVERIFY(QFile::link("other", name));
        QVERIFY(Write("1"));
        QVERIFY(QFileInfo::exists(name + "/folder"));

        QVERIFY(QFile::remove(name));
        QFile file(name);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write("text") == 4);
        file.close();
        QVERIFY(Write("0"));
        QCOMPARE(file.size(), 4);
    }

    void LogsWhyItDoesNotWrite()
    {
        QVERIFY(Write("0"));
        {
            QLockFile lock("config.ini.lock");
            QVERIFY(lock.tryLock());
            const timespec longAgo[] = {{1, 0}, {1, 0}};
            QCOMPARE(utimensat(AT_FDCWD, "config.ini.lock", longAgo, 0), 0);
            CheckNotWritten("locked by process " + QByteArray::number(getpid()) + " (platform_config)");
        }
        QCOMPARE(mkfifo("config.ini.lock", 0644), 0);
        CheckNotWritten("its lock is not a regular file");
        qputenv("KOVA_CONFIG_FILE", "config.ini/config.ini");
        CheckNotWritten("File exists");
    }

    void SeesAChangeOfSameSizeAndTime()
    {
        SetStore("[PHONE]\nenabled=0\n");
        const Configuration early("/client");
        QCOMPARE(Read(), QString("0"));

        SetStore("[PHONE]\nenabled=1\n");
        QCOMPARE(Read(), QString("1"));
        QCOMPARE(early.ReadConfigValue("PHONE", "enabled", "default", nullptr, false), QString("0"));
        QCOMPARE(early.ReadConfigValue("PHONE", "enabled", "default", nullptr, true), QString("1"));
    }

    void LosesNothingOfSeveralWriters()
    {
        constexpr int Writes = 20;
        for (const char* key : {"first", "second"}) {
            if (fork() == 0) {
                int i = 1;
                while (i <= Writes && Write(QString::number(i), key) && Read(key) == QString::number(i))
                    ++i;
                _exit(0);
            }
        }
        while (wait(nullptr) > 0) {
        }
        for (const char* key : {"first", "second"})
            QCOMPARE(Read(key), QString::number(Writes));
        QCOMPARE(Entries(), QStringList("config.ini"));
    }

    void KeepsTheStoreWhenTheDiskIsFull()
    {
        const QByteArray text = "[PHONE]\nenabled=0\nlong=" + QByteArray(2000 - 24, 'x') + '\n';
        SetStore(text);

        // A limit on the size of files cuts a write short like a full disk: here that of the lock, of the copy to
        // parse, and of the changed copy.
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit = {};
        getrlimit(RLIMIT_FSIZE, &limit);
        const std::pair<rlim_t, const char*> rooms[] = {{0, "its lock cannot be written; is the disk full?"},
                                                        {1000, "no room for a copy to parse"},
                                                        {2005, "the changed file does not read back"}};
        for (const auto& [room, reason] : rooms) {
            const rlimit tight = {room, limit.rlim_max};
            setrlimit(RLIMIT_FSIZE, &tight);
            CheckNotWritten(reason, "longer by more");
            setrlimit(RLIMIT_FSIZE, &limit);
            QCOMPARE(Store(), text);
            QCOMPARE(Entries(), QStringList("config.ini"));
        }
        QVERIFY(Write("1"));
    }

    void SurvivesAKilledWriter()
    {
        for (int round = 1; round <= 8; ++round) {
            QVERIFY(Write("0"));
            const pid_t writer = fork();
            if (writer == 0) {
                int i = 1;
                while (Write(QString::number(i)))
                    ++i;
                _exit(0);
            }
            QTRY_VERIFY(Read().toInt() >= round);
            kill(writer, SIGKILL);
            waitpid(writer, nullptr, 0);

            QVERIFY(Read().toInt() >= round);
            QVERIFY(Write("0"));
            QCOMPARE(Entries(), QStringList("config.ini"));
        }

        QFile unfilledLock("config.ini.lock");
        QVERIFY(unfilledLock.open(QIODevice::WriteOnly));
        unfilledLock.close();
        QVERIFY(Write("1"));
        QCOMPARE(Entries(), QStringList("config.ini"));
    }
};

QTEST_GUILESS_MAIN(ConfigurationTest)
#include "ConfigurationTest.moc"
