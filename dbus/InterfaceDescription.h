#pragma once

#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

/// A bus interface as an introspection text describes it.
class InterfaceDescription
{
public:
    struct Method {
        QStringList in;  ///< D-Bus types of the arguments
        QStringList out; ///< D-Bus types of the answer

        bool operator==(const Method& other) const { return in == other.in && out == other.out; }
    };

    /// @param xml what an object answers to Introspect, or a file of this folder.
    /// @return nothing when the text is broken or has no such interface.
    static std::optional<InterfaceDescription> Read(const QString& xml, const QString& name);

    const QString& Name() const { return name; }
    /// The interface element to the letter.
    const QString& Element() const { return element; }
    const QMap<QString, Method>& Methods() const { return methods; }
    /// The D-Bus types of each signal's arguments.
    const QMap<QString, QStringList>& Signals() const { return signalTypes; }

    /// Compares another description with this one. @return one line for each method or signal that it does not have, or
    /// has with other types. Members that only the other one has are no fault.
    QStringList MissingIn(const InterfaceDescription& other) const;

private:
    QString name;
    QString element;
    QMap<QString, Method> methods;
    QMap<QString, QStringList> signalTypes;
};
