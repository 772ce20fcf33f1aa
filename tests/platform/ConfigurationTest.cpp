#include <Configuration.h>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <functional>
#include <optional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

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

/// Runs the work in a process of its own.
pid_t Fork(const std::function<void()>& work)
{
    const pid_t process = fork();
    if (process == 0) {
        work();
        _exit(0);
    }
    return process;
}

}

class ConfigurationTest : public QObject
{
    Q_OBJECT

    std::optional<QTemporaryDir> folder;

    QByteArray Store() const
    {
        QFile file("config.ini");
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    void SetStore(const QByteArray& text) const
    {
        QFile file("config.ini");
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(text) == text.size());
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

    void MakesAStoreThatIsMissing()
    {
        qputenv("KOVA_CONFIG_FILE", "new/folder/config.ini");
        QVERIFY(Configuration("/client").IsValid());
        QCOMPARE(Read(), QString("default"));
        QCOMPARE(Entries(), QStringList());

        QVERIFY(Write("1"));
        QCOMPARE(Read(), QString("1"));
        QCOMPARE(QDir("new/folder").entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList("config.ini"));
    }

    void KeepsEveryOtherValue_data()
    {
        QTest::addColumn<QString>("section");
        QTest::addColumn<QString>("value");
        const auto row = [](const char* name, const char* section, const char* value) {
            QTest::newRow(name) << QString::fromUtf8(section) << QString::fromUtf8(value);
        };
        row("number", "PHONE", "1");
        row("empty", "PHONE", "");
        row("signs", "PHONE", " a,b;c=\"d\"\\n%20 \n[x]");
        row("beyond ASCII", "PH\u00d6NE", "\u00e9\u20ac\U0001f4de");
        row("variant", "PHONE", "@Variant(");
        row("general", "General", "1");
        row("new section", "DEVICES SETUP", "1");
    }

    void KeepsEveryOtherValue()
    {
        QFETCH(QString, section);
        QFETCH(QString, value);
        SetStore("[General]\nname=a, b\n[PHONE]\nenabled=0\nother=\"x;y\"\n");
        QVERIFY(QFile::setPermissions("config.ini", QFile::ReadOwner | QFile::WriteOwner));

        QVERIFY(Write(value, "enabled", section));
        QCOMPARE(Read("enabled", section), value);
        QCOMPARE(Read("name", "General"), QString("a, b"));
        QCOMPARE(Read("other"), QString("x;y"));
        QCOMPARE(QSettings("config.ini", QSettings::IniFormat).value("PHONE/other").toString(), QString("x;y"));
        struct stat status = {};
        QVERIFY(stat("config.ini", &status) == 0);
        QCOMPARE(status.st_mode & 0777U, 0600U);
    }

    void RefusesTextThatIsNoStore()
    {
        const QByteArray zeros(64, '\0'); // what a power cut can leave
        for (const QByteArray& text : {QByteArray("not a setting\n"), QByteArray("[PHONE\nenabled=1\n"), zeros}) {
            SetStore(text);
            CheckRefused();
            QCOMPARE(Store(), text);
        }
    }

    void RefusesWhatIsNoFile()
    {
        QCOMPARE(mkdir("config.ini", 0755), 0);
        CheckRefused();
        QCOMPARE(rmdir("config.ini"), 0);
        QCOMPARE(mkfifo("config.ini", 0644), 0);
        CheckRefused();
        QCOMPARE(unlink("config.ini"), 0);
        QCOMPARE(symlink("config.ini", "config.ini"), 0);
        CheckRefused();
    }

    void WritesWhereALinkLeads()
    {
        QVERIFY(QDir().mkdir("data"));
        QVERIFY(QFile::link("data/kova.ini", "config.ini"));
        for (const char* value : {"1", "0"}) {
            QVERIFY(Write(value));
            QCOMPARE(Read(), QString(value));
        }
        QVERIFY(QFileInfo("config.ini").isSymLink());
        QCOMPARE(QDir("data").entryList(QDir::Files), QStringList("kova.ini"));
    }

    void SeesAChangeOfSameSizeAndTime()
    {
        const timespec times[2] = {{1000000000, 0}, {1000000000, 0}};
        SetStore("[PHONE]\nenabled=0\n");
        QCOMPARE(utimensat(AT_FDCWD, "config.ini", times, 0), 0);
        Configuration early("/client");
        QCOMPARE(Read(), QString("0"));

        SetStore("[PHONE]\nenabled=1\n");
        QCOMPARE(utimensat(AT_FDCWD, "config.ini", times, 0), 0);
        QCOMPARE(Read(), QString("1"));
        QCOMPARE(early.ReadConfigValue("PHONE", "enabled", "default", nullptr, false), QString("0"));
        QCOMPARE(early.ReadConfigValue("PHONE", "enabled", "default", nullptr, true), QString("1"));
    }

    void LosesNothingOfSeveralWriters()
    {
        constexpr int Writes = 20;
        for (const char* key : {"first", "second"}) {
            Fork([&] {
                int i = 1;
                while (i <= Writes && Write(QString::number(i), key) && Read(key) == QString::number(i))
                    ++i;
            });
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
            const pid_t writer = Fork([] {
                for (int i = 1; Write(QString::number(i)); ++i) {
                }
            });
            QTRY_VERIFY(Read().toInt() >= round);
            kill(writer, SIGKILL);
            waitpid(writer, nullptr, 0);

            QVERIFY(Read().toInt() >= round);
            QVERIFY(Write("0"));
            QCOMPARE(Entries(), QStringList("config.ini"));
        }
    }
};

QTEST_GUILESS_MAIN(ConfigurationTest)
#include "ConfigurationTest.moc"
