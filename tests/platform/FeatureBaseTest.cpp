#include <KovaFeatureBase.h>
#include <QTest>

class FeatureBaseTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void IsValidWithAnObjectPath()
    {
        for (const char* path : {"/", "/com/quillmark/kova/phonemanager/phoneobj", "/A_9"})
            QVERIFY2(KovaFeatureBase(path).IsValid(), path);
        for (const char* path : {"", "com", "//", "/com/", "/com//kova", "/com.kova", "/ph\xc3\xb6ne", "/a\n"})
            QVERIFY2(!KovaFeatureBase(path).IsValid(), path);
        QVERIFY(!KovaFeatureBase(nullptr).IsValid());
    }
};

QTEST_GUILESS_MAIN(FeatureBaseTest)
#include "FeatureBaseTest.moc"
