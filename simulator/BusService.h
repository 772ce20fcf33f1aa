#pragma once

#include "Interface.h"

#include <QDBusConnection>
#include <QDBusVirtualObject>

#include <functional>
#include <optional>

/// What a device service answers to a request: a status, 0 for success, and the further values of the method.
struct Answer {
    int status = 0;
    QVariantList values = {};
};

/// What goes wrong with a method.
struct Fault {
    enum Kind { Status, Error, Silent, Delay };

    Kind kind = Silent;
    int number = 0;             ///< the status, or the delay in milliseconds
    QString error = {};         ///< the D-Bus error's name
    std::optional<int> times{}; ///< how many requests it hits; all when not set
    QString text = {};          ///< as it was asked for
};

/// One of the device's services, on a bus connection of its own, so that it can leave the bus as a process that dies.
/// The interface's description rules what is taken and answered.
class BusService : public QDBusVirtualObject
{
    Q_OBJECT

public:
    using Handler = std::function<Answer(const QVariantList& arguments)>;

    /// @param shortName what console and history call it.
    BusService(const QString& shortName, const char* busName, const char* objectPath, const char* interface);
    ~BusService() override;

    const QString& ShortName() const { return shortName; }
    const InterfaceDescription& Description() const { return interface; }

    /// Sets what a method does.
    void Handle(const QString& method, const Handler& handler);
    /// Ends the program if a method of the description has no handler: a fault of the build.
    void CheckComplete() const;

    /// Enters the bus. @return an empty text, or what prevents it.
    QString Join();
    /// Leaves the bus; requests that wait for an answer fail at once.
    void Leave();
    bool IsOnBus() const { return onBus; }

    /// Emits Asked() and Sent() for events of another front end, too, in this interface's terms.
    void SetNarrating() { narrating = true; }
    /// Records a request that another front end has taken.
    void Narrate(const QString& method, const QVariantList& arguments);

    /// The fault that the next request for a method meets; it counts as met.
    std::optional<Fault> TakeFault(const QString& method);
    void SetFault(const QString& method, const Fault& fault) { faults.insert(method, fault); }
    void ClearFault(const QString& method) { faults.remove(method); }
    QStringList Faults() const;

    /// Sends a signal of the interface; nothing while the service is not on the bus.
    void Send(const QString& signal, const QVariantList& arguments = {});

    QString introspect(const QString& path) const override;
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

Q_SIGNALS:
    void Joined();
    void Asked(const QString& request);
    void Sent(const QString& signal);

private:
    Answer Carry(const QDBusMessage& request, const std::optional<Fault>& fault);
    void Reply(const QDBusMessage& reply);
    QString ConnectionName() const { return QStringLiteral("simulator-") + shortName; }

    const QString shortName;
    const QString busName;
    const QString objectPath;
    const InterfaceDescription interface;
    QMap<QString, Handler> handlers;
    QMap<QString, Fault> faults;
    bool onBus = false;
    bool narrating = false;
    int visit = 0; ///< counts the times on the bus: a late answer is for the visit that was asked
};
