#include "Pdu.h"

#include <QStringList>
#include <QTest>

/// Published units, and texts that are encoded and decoded again.
class PduTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void published();
    void roundTrip_data();
    void roundTrip();
    void broken_data();
    void broken();
};

void PduTest::published()
{
    const QByteArray submit = QByteArray::fromHex("0011000B916407281553F80000AA0AE8329BFD4697D9EC37");
    const auto submitted = Pdu::DecodeSubmit(submit);
    QVERIFY(submitted && !Pdu::DecodeDeliver(submit));
    QCOMPARE(submitted->number, "+46708251358");
    QCOMPARE(submitted->text, "hellohello");
    QCOMPARE(Pdu::Length(submit), 23);

    const QByteArray deliver =
        QByteArray::fromHex("07917238010010F5040BC87238880900F10000993092516195800AE8329BFD4697D9EC37");
    const auto delivered = Pdu::DecodeDeliver(deliver);
    QVERIFY(delivered && !Pdu::DecodeSubmit(deliver));
    QCOMPARE(delivered->number, "27838890001");
    QCOMPARE(delivered->text, "hellohello");
    QCOMPARE(delivered->time.time(), QTime(15, 16, 59));
    QCOMPARE(delivered->time.offsetFromUtc(), 2 * 3600);

    // 3GPP TS 23.038: the euro sign is 1b 65; 23.040: Cyrillic takes UCS-2.
    QCOMPARE(Pdu::EncodeSubmit("+46708251358", "\u20ac", 7).value(0).toHex(), "0001070b916407281553f80000029b32");
    QCOMPARE(Pdu::EncodeSubmit("123", "\u042f", 7).value(0).toHex(), "000107038121f3000802042f");
    // A reference of 16 bits
    const auto wide = Pdu::DecodeSubmit(QByteArray::fromHex("0041000381 21f3 00 04 09 06 0804 1234 02 01 4142"));
    QVERIFY(wide);
    QCOMPARE(QStringList({wide->text, QString::number(wide->reference, 16), QString::number(wide->part)}),
             QStringList({"AB", "1234", "1"}));
}

void PduTest::roundTrip_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("units");
    QString everything;
    for (const char16_t c : u"@£$¥èéùìòÇ\nØø\rÅåΔ_ΦΓΛΩΠΨΣΘΞÆæßÉ¤¡ÄÖÑÜ§¿äöñüà\f^{}\\[~]|€")
        everything += c ? QString(QChar(c)) : QString();
    QTest::newRow("empty") << QString() << 1;
    QTest::newRow("alphabet") << everything << 1;
    QTest::newRow("just one") << QString(160, 'x') << 1;
    QTest::newRow("one too many") << QString(161, 'x') << 2;
    QTest::newRow("escape on the edge") << QString(152, 'x') + "{" + QString(153, 'y') << 3;
    QTest::newRow("extended") << QString(81, '{') << 2;
    QTest::newRow("UCS-2") << QString(70, QChar(0x42f)) << 1;
    QTest::newRow("UCS-2, two") << QString(71, QChar(0x42f)) << 2;
    QTest::newRow("pair on the edge") << QString(66, QChar(0x42f)) + QString::fromUtf8("\U0001f600") + "end" << 1 + 1;
    QTest::newRow("byte order mark") << QString::fromUtf8("\ufeffa\ufeff") << 1;
    QTest::newRow("most") << QString(255 * 153, 'x') << 255;
    QTest::newRow("too long") << QString(255 * 153 + 1, 'x') << 0;
}

void PduTest::roundTrip()
{
    QFETCH(QString, text);
    QFETCH(int, units);
    const QDateTime time(QDate(2026, 11, 24), QTime(14, 3, 22), Qt::OffsetFromUTC, -9000);
    const QStringList senders = {"+493023125001", "110", "Bank {1}", ""};
    for (const QString& sender : senders) {
        const QList<QByteArray> delivered = Pdu::EncodeDeliver(sender, text, time, 77);
        const QList<QByteArray> submitted = Pdu::EncodeSubmit("+4930", text, 77);
        QCOMPARE(delivered.size(), units);
        QCOMPARE(submitted.size(), units);
        QString received;
        QString sent;
        for (int i = 0; i < units; ++i) {
            const auto one = Pdu::DecodeDeliver(delivered.at(i));
            const auto other = Pdu::DecodeSubmit(submitted.at(i));
            QVERIFY(one && other);
            QCOMPARE(one->number, sender);
            QCOMPARE(one->time, time);
            QCOMPARE(one->part, i + 1);
            QCOMPARE(one->parts, units);
            QCOMPARE(one->reference, units > 1 ? 77 : 0);
            received += one->text;
            sent += other->text;
        }
        QCOMPARE(received, units ? text : QString());
        QCOMPARE(sent, received);
    }
}

void PduTest::broken_data()
{
    QTest::addColumn<QByteArray>("unit");
    const QByteArray whole = Pdu::EncodeSubmit("+4930", QString(200, 'x'), 1).value(0);
    for (int size = 0; size < whole.size(); ++size)
        QTest::addRow("cut at %d", size) << whole.left(size);
    QTest::newRow("compressed") << QByteArray::fromHex("0001000381 21f3 00 20 0141");
    QTest::newRow("header beyond the end") << QByteArray::fromHex("0041000381 21f3 00 04 02 0900");
}

void PduTest::broken()
{
    QFETCH(QByteArray, unit);
    QVERIFY(!Pdu::DecodeSubmit(unit));
}

QTEST_GUILESS_MAIN(PduTest)
#include "PduTest.moc"
