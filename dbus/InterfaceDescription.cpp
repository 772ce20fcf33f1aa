#include "InterfaceDescription.h"

#include <QFile>
#include <QXmlStreamReader>

namespace
{

QString Types(const QStringList& types)
{
    return QLatin1Char('(') + types.join(QString()) + QLatin1Char(')');
}

}

std::optional<InterfaceDescription> InterfaceDescription::Read(const QString& xml, const QString& name)
{
    InterfaceDescription description;
    QXmlStreamReader reader(xml);
    bool inside = false;
    bool isSignal = false;
    QString member;
    while (!reader.atEnd()) {
        const QXmlStreamReader::TokenType token = reader.readNext();
        const bool isInterface = reader.name() == QLatin1String("interface");
        if (token == QXmlStreamReader::EndElement && isInterface)
            inside = false;
        if (token != QXmlStreamReader::StartElement)
            continue;

        const QXmlStreamAttributes attributes = reader.attributes();
        const QString named = attributes.value(QStringLiteral("name")).toString();
        if (isInterface && named == name) {
            inside = true;
            description.name = name;
        } else if (inside && reader.name() == QLatin1String("method")) {
            isSignal = false;
            member = named;
            description.methods.insert(member, {});
        } else if (inside && reader.name() == QLatin1String("signal")) {
            isSignal = true;
            member = named;
            description.signalTypes.insert(member, {});
        } else if (inside && reader.name() == QLatin1String("arg")) {
            const QString type = attributes.value(QStringLiteral("type")).toString();
            if (isSignal)
                description.signalTypes[member].append(type);
            else if (attributes.value(QStringLiteral("direction")) == QLatin1String("out"))
                description.methods[member].out.append(type);
            else
                description.methods[member].in.append(type);
        }
    }
    if (reader.hasError() || description.name.isEmpty())
        return std::nullopt;

    const QString end = QStringLiteral("</interface>\n");
    description.element = xml.mid(xml.indexOf(QStringLiteral("  <interface name=\"%1\"").arg(name)));
    description.element.truncate(description.element.indexOf(end) + end.size());
    return description;
}

InterfaceDescription InterfaceDescription::BuiltIn(const QString& name)
{
    Q_INIT_RESOURCE(descriptions); // a static library's resources do not register themselves
    QFile file(QStringLiteral(":/dbus/%1.xml").arg(name));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("No description of %s", qPrintable(name));
    const auto description = Read(QString::fromUtf8(file.readAll()), name);
    if (!description)
        qFatal("The description of %s is malformed", qPrintable(name));
    return *description;
}

QStringList InterfaceDescription::MissingIn(const InterfaceDescription& other) const
{
    QStringList missing;
    for (auto method = methods.begin(); method != methods.end(); ++method) {
        const auto there = other.methods.find(method.key());
        if (there == other.methods.end())
            missing.append(QStringLiteral("no method %1").arg(method.key()));
        else if (*there != *method)
            missing.append(
                QStringLiteral("method %1 takes %2 and answers %3, not %4 and %5")
                    .arg(method.key(), Types(there->in), Types(there->out), Types(method->in), Types(method->out)));
    }
    for (auto signal = signalTypes.begin(); signal != signalTypes.end(); ++signal) {
        const auto there = other.signalTypes.find(signal.key());
        if (there == other.signalTypes.end())
            missing.append(QStringLiteral("no signal %1").arg(signal.key()));
        else if (*there != *signal)
            missing.append(QStringLiteral("signal %1 has %2, not %3").arg(signal.key(), Types(*there), Types(*signal)));
    }
    return missing;
}
