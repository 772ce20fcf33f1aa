#pragma once

#include "Log.h"
#include "PeerCodes.h"

#include <QDBusError>
#include <QDBusPendingReply>
#include <QDBusReply>
#include <QString>

/// Traces the raw result of a synchronous remote call, whose first out argument is a status (0 is success).
/// @param origin the object path that the line is logged under.
/// @param name the call, as peer->method.
inline void PRINT_DBUS_RESULT(const char* origin, const QString& name, const QDBusReply<int>& reply)
{
    const QByteArray call = name.toLocal8Bit();

    if (!reply.isValid())
        LOG_FROM(origin, LogLevelWarning, "Dbus %s sync call: valid=false, value=nd", call.constData());
    else
        LOG_FROM(origin, reply.value() == PeerStatusSuccess ? LogLevelTrace : LogLevelWarning,
                 "Dbus %s sync call: valid=true, value=%d", call.constData(), reply.value());
}

/// Traces the raw result of an asynchronous remote call. An answer without an error has the level of a trace, whatever
/// its status: the caller logs the failure.
inline void PRINT_DBUS_RESULT(const char* origin, const QString& name, const QDBusPendingReply<int>& reply)
{
    const QByteArray call = name.toLocal8Bit();

    if (!reply.isFinished()) {
        LOG_FROM(origin, LogLevelWarning, "Dbus %s async call: finished=false", call.constData());
    } else if (reply.isValid() && !reply.isError()) {
        LOG_FROM(origin, LogLevelTrace, "Dbus %s async call: finished=true, valid=true, error=false, value=%d",
                 call.constData(), reply.value());
    } else {
        const QString error = reply.isError() ? reply.error().message() : QStringLiteral("nd");
        const QString value = reply.isValid() ? QString::number(reply.value(), 10) : QStringLiteral("nd");
        LOG_FROM(origin, LogLevelWarning, "Dbus %s async call: finished=true, valid=%s, error=%s (%s), value=%s",
                 call.constData(), reply.isValid() ? "true" : "false", reply.isError() ? "true" : "false",
                 error.toLocal8Bit().constData(), value.toLocal8Bit().constData());
    }
}

/// True if the answer arrived in time, without an error and with the status of success.
inline bool Succeeded(const QDBusReply<int>& reply)
{
    return reply.isValid() && reply.value() == PeerStatusSuccess;
}

inline bool Succeeded(const QDBusPendingReply<int>& reply)
{
    return reply.isFinished() && reply.isValid() && !reply.isError() && reply.value() == PeerStatusSuccess;
}

/// Traces the answer of a synchronous call.
/// @return true if the call succeeded.
inline bool FinishCall(const QString& name, const QDBusReply<int>& reply)
{
    PRINT_DBUS_RESULT(Names::PhoneObject, name, reply);
    return Succeeded(reply);
}

/// Waits for the answer of an asynchronous call, at most for its proxy's timeout, and traces it.
/// @return true if the call succeeded.
inline bool FinishCall(const QString& name, QDBusPendingReply<int> reply)
{
    reply.waitForFinished();
    PRINT_DBUS_RESULT(Names::PhoneObject, name, reply);
    return Succeeded(reply);
}
