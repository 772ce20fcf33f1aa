#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>

/// A bus interface as its description tells it.
class Interface
{
public:
    struct Method {
        QStringList in;  ///< D-Bus types of the arguments
        QStringList out; ///< D-Bus types of the answer
    };

    /// Reads the description that is built into the program. A description that is not there or broken ends the
    /// program: it is a fault of the build.
    explicit Interface(const QString& name);

    const QString& Name() const { return name; }
    /// The interface element to the letter.
    const QString& Element() const { return element; }
    const QMap<QString, Method>& Methods() const { return methods; }
    const QMap<QString, QStringList>& Signals() const { return signalTypes; }

private:
    QString name;
    QString element;
    QMap<QString, Method> methods;
    QMap<QString, QStringList> signalTypes;
};

/// Converts to the exact type that a D-Bus type stands for (b, y, i, u, d, s, as, a{sv}).
/// @return an invalid value when that is not possible.
QVariant ToBusType(const QVariant& value, const QString& type);

/// A value as console and history show it: texts in quotes, control characters visible.
QString Show(const QVariant& value);
QString Show(const QVariantList& values);
