#pragma once

#include "InterfaceDescription.h"

#include <QDBusConnection>
#include <QDBusVirtualObject>

#include <functional>
#include <optional>

/// A service's answer to a request: a status, 0 for success, and the method's other output values.
struct Answer {
    int status = 0;
    QVariantList values = {};
};

/// An injected fault of a method.
struct Fault {
    enum Kind { Status, Error, Silent, Delay };

    Kind kind = Silent;
    int number = 0;             ///< the status, or the delay in milliseconds
    QString error = {};         ///< the name of the D-Bus error
    std::optional<int> times{}; ///< how many requests it affects; all of them if not set
    QString text = {};          ///< the command that injected it
};

/// One of the device's services. It has a bus connection of its own so that it can leave the bus like a process that
/// crashes. Requests and answers follow the interface description.
class BusService : public QDBusVirtualObject
{
    Q_OBJECT

public:
    using Handler = std::function<Answer(const QVariantList& arguments)>;

    /// @param shortName its name on the console and in the history.
    BusService(const QString& shortName, const char* busName, const char* objectPath, const char* interface);
    ~BusService() override;

    const QString& ShortName() const { return shortName; }
    const InterfaceDescription& Description() const { return interface; }

    /// Sets the handler of a method.
    void Handle(const QString& method, const Handler& handler);
    /// Ends the program if a method of the description has no handler, which is a programming error.
    void CheckComplete() const;

    /// Connects to the bus and claims the name. @return an error message, empty on success.
    QString Join();
    /// Disconnects from the bus. Requests that wait for an answer fail at once.
    void Leave();
    bool IsOnBus() const { return onBus; }

    /// Emits SignalSent() even while the service is not on the bus, for a modem that has another front end.
    void ReportOffBusToo() { reportsOffBus = true; }
    /// Emits RequestReceived(). Another front end calls this for requests that correspond to the method.
    void RecordRequest(const QString& method, const QVariantList& arguments);

    /// @return the fault of a method, if any. Counts as one request for it.
    std::optional<Fault> TakeFault(const QString& method);
    void SetFault(const QString& method, const Fault& fault) { faults.insert(method, fault); }
    void ClearFault(const QString& method) { faults.remove(method); }
    QStringList Faults() const;

    /// Sends a signal of the interface. Does nothing while the service is not on the bus.
    void Send(const QString& signal, const QVariantList& arguments = {});

    QString introspect(const QString& path) const override;
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

Q_SIGNALS:
    void Joined();
    void RequestReceived(const QString& request);
    void SignalSent(const QString& signal);

private:
    Answer Execute(const QDBusMessage& request, const std::optional<Fault>& fault);
    void Reply(const QDBusMessage& reply);
    QString ConnectionName() const { return QStringLiteral("simulator-") + shortName; }

    const QString shortName;
    const QString busName;
    const QString objectPath;
    const InterfaceDescription interface;
    QMap<QString, Handler> handlers;
    QMap<QString, Fault> faults;
    bool onBus = false;
    bool reportsOffBus = false;
    int session = 0; ///< counts the connections to the bus: a delayed answer must not be sent in a later one
};
