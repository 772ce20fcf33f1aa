#include <Configuration.h>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <optional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

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

    /// Always of the same time, which then tells no change.
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

    static void CheckRefused()
    {
        QVERIFY(!Configuration("/client").IsValid());
        QCOMPARE(Read(), QString("invalid"));
        QVERIFY(!Write("1"));
        QCOMPARE(Entries(), QStringList("config.ini"));
    }

private Q_SLOTS:
    void init()
    {
        folder.emplace();
        QVERIFY(folder->isValid() && QDir::setCurrent(folder->path()));
        qputenv("KOVA_CONFIG_FILE", QFile::encodeName(folder->filePath("config.ini")));
    }

    void MakesWhatIsMissingWhereALinkLeads()
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

    void RefusesWhatIsNoStore()
    {
        const QByteArray zeros(64, '\0'); // what a power cut can leave
        for (const QByteArray& text : {QByteArray("not a setting\n"), QByteArray("[PHONE\nenabled=1\n"), zeros}) {
            SetStore(text);
            CheckRefused();
            QCOMPARE(Store(), text);
        }

        QCOMPARE(unlink("config.ini"), 0);
        QCOMPARE(mkdir("config.ini", 0755), 0);
        CheckRefused();
        QCOMPARE(rmdir("config.ini"), 0);
        QCOMPARE(mkfifo("config.ini", 0644), 0);
        CheckRefused();
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

        // A limit on the size of files cuts a write short, as a full disk does: that of the lock, of the copy, of the
        // changed copy.
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit = {};
        getrlimit(RLIMIT_FSIZE, &limit);
        for (const rlim_t room : {0, 1000, 2005}) {
            const rlimit tight = {room, limit.rlim_max};
            setrlimit(RLIMIT_FSIZE, &tight);
            const bool written = Write("longer by more");
            setrlimit(RLIMIT_FSIZE, &limit);

            QVERIFY(!written);
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
