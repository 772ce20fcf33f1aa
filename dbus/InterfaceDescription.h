#pragma once

#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

/// A bus interface, read from its introspection XML.
class InterfaceDescription
{
public:
    struct Method {
        QStringList in;  ///< D-Bus types of the arguments
        QStringList out; ///< D-Bus types of the answer

        bool operator==(const Method& other) const { return in == other.in && out == other.out; }
    };

    /// @param xml an object's answer to Introspect, or the text of a file in this folder.
    /// @return nothing if the text is not well-formed or does not have the interface.
    static std::optional<InterfaceDescription> Read(const QString& xml, const QString& name);
    /// Reads one of the descriptions in this folder, which are built into the program. Ends the program if it is
    /// missing or malformed, which is an error in the build.
    static InterfaceDescription BuiltIn(const QString& name);

    const QString& Name() const { return name; }
    /// The interface element, verbatim.
    const QString& Element() const { return element; }
    const QMap<QString, Method>& Methods() const { return methods; }
    /// The D-Bus types of each signal's arguments.
    const QMap<QString, QStringList>& Signals() const { return signalTypes; }

    /// Compares another description with this one.
    /// @return one line for each method or signal that the other lacks or has with other types. Additional members of
    /// the other are not reported.
    QStringList MissingIn(const InterfaceDescription& other) const;

private:
    QString name;
    QString element;
    QMap<QString, Method> methods;
    QMap<QString, QStringList> signalTypes;
};
