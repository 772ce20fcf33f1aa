#include "LinkState.h"
#include "LogCapture.h"

#include <QCoreApplication>
#include <QDir>
#include <QTest>

#include <sys/resource.h>

class LinkTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    /// A failed look-up logs the reason, and the next one tries again.
    void LooksUpAsSoonAsItCan()
    {
        const auto checkUnknown = [](const QByteArray& reason) {
            QCOMPARE(LookUpLink("lo"), LinkStateUnknown);
            const QList<Logged> log = TakeLog();
            QCOMPARE(log.size(), 1);
            QCOMPARE(log[0].level, 2U);
            QCOMPARE(log[0].Prefix(), QByteArray("[datalink/LinkState.cpp] LinkState LookUpLink(const char*)"));
            QVERIFY2(log[0].Message().startsWith("Can't look up network interfaces: ") &&
                         log[0].Message().endsWith(reason),
                     log[0].text.constData());
        };
        const QString here = QCoreApplication::applicationDirPath() + '/';
        const QStringList modules = QDir(KOVA_BUILD_DIR).entryList({"libphone_link.so.*"});
        QVERIFY(!modules.isEmpty());

        checkUnknown("No such file or directory");
        for (const QString& module : modules)
            QVERIFY(QFile::link(KOVA_BUILD_DIR "/" + module, here + module));
        QCOMPARE(LookUpLink("lo"), LinkStateUp);
        QCOMPARE(LookUpLink("ppp99"), LinkStateDown);
        for (const QString& module : modules)
            QVERIFY(QFile::remove(here + module));

        rlimit limit = {};
        getrlimit(RLIMIT_NOFILE, &limit);
        const rlimit none = {0, limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        checkUnknown("the kernel cannot be asked");
        setrlimit(RLIMIT_NOFILE, &limit);
        QCOMPARE(LookUpLink("lo"), LinkStateUp);
        QCOMPARE(TakeLog().size(), 0);
    }
};

QTEST_GUILESS_MAIN(LinkTest)
#include "LinkTest.moc"
