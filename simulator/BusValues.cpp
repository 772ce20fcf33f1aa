#include "BusValues.h"

#include <QDBusArgument>

QVariant ToBusType(const QVariant& value, const QString& type)
{
    bool ok = true;
    QVariant result;
    if (type == QLatin1String("b")) {
        const QString text = value.toString();
        ok = text == QLatin1String("true") || text == QLatin1String("false");
        result = value.toBool();
    } else if (type == QLatin1String("y")) {
        const uint number = value.toUInt(&ok);
        ok = ok && number <= UCHAR_MAX;
        result = QVariant::fromValue(static_cast<uchar>(number));
    } else if (type == QLatin1String("i")) {
        result = value.toInt(&ok);
    } else if (type == QLatin1String("u")) {
        result = value.toUInt(&ok);
    } else if (type == QLatin1String("d")) {
        result = value.toDouble(&ok);
    } else if (type == QLatin1String("s")) {
        result = value.toString();
    } else if (type == QLatin1String("as")) {
        result = value.toStringList();
    } else if (type == QLatin1String("a{sv}")) {
        result = value.toMap();
    } else {
        ok = false;
    }
    return ok ? result : QVariant();
}

QString ToText(const QVariant& value)
{
    const int type = value.userType();
    if (type == qMetaTypeId<QDBusArgument>()) {
        // The interfaces have no other container, but its values may be anything that a peer sends.
        const QString signature = qvariant_cast<QDBusArgument>(value).currentSignature();
        return signature == QLatin1String("a{sv}") ? ToText(qdbus_cast<QVariantMap>(value))
                                                   : QLatin1Char('<') + signature + QLatin1Char('>');
    }
    if (type == QMetaType::QVariantMap) {
        QStringList entries;
        const QVariantMap map = value.toMap();
        for (auto entry = map.begin(); entry != map.end(); ++entry)
            entries.append(entry.key() + QLatin1Char('=') + ToText(entry.value()));
        return QLatin1Char('{') + entries.join(QStringLiteral(", ")) + QLatin1Char('}');
    }
    if (type == QMetaType::UChar) // toString() would return a character
        return QString::number(value.toUInt());
    if (type != QMetaType::QString)
        return value.toString();

    QString text;
    for (const uint c : value.toString().toUcs4()) {
        const char32_t character = c;
        text += QChar::isPrint(c) ? QString::fromUcs4(&character, 1)
                                  : QStringLiteral("\\x%1").arg(c, 2, 16, QLatin1Char('0'));
    }
    return QLatin1Char('"') + text + QLatin1Char('"');
}

QString ToText(const QVariantList& values)
{
    QStringList texts;
    for (const QVariant& value : values)
        texts.append(ToText(value));
    return QLatin1Char('(') + texts.join(QStringLiteral(", ")) + QLatin1Char(')');
}
